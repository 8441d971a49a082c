// SPDX-License-Identifier: BSD-3-Clause
// The client library on a private system bus (PRIVATE_BUS in CMakeLists): a
// stand-in for the daemon owns its name in this process, answers with chosen
// maps and emits the daemon's signals; the library's classes read them typed.
#include "dbustypes.h"

#include <plinth/plinth.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QSignalSpy>
#include <QtTest>

#include <limits>

namespace {

const quint64 wrapped = quint64(0) - 4096;

QVariantMap partition(const QString &name, const QString &mountPoint)
{
    return {{QStringLiteral("partitionName"), name},
            {QStringLiteral("mountPoint"), mountPoint},
            {QStringLiteral("partitionLabel"), QString(QStringLiteral("label-") + name)},
            {QStringLiteral("driveName"), QStringLiteral("Acme SD16G")},
            {QStringLiteral("bytesTotal"), qint64(4096)},
            {QStringLiteral("bytesUsed"), qint64(mountPoint.isEmpty() ? 4096 : 1024)},
            {QStringLiteral("bytesAvailable"), qint64(mountPoint.isEmpty() ? 0 : 3072)}};
}

QVariantMap drive()
{
    return {{QStringLiteral("driveName"), QStringLiteral("Acme SD16G")},
            {QStringLiteral("driveType"), QStringLiteral("USB")},
            {QStringLiteral("partitionsInfo"),
             QVariant::fromValue(QVariantMapList{partition(QStringLiteral("PHOTOS"), QStringLiteral("/media/p")),
                                                 partition(QStringLiteral("backup"), QString())})}};
}

QVariantMapList cards()
{
    return {{{QStringLiteral("simName"), QStringLiteral("SIM2")},
             {QStringLiteral("operatorName"), QStringLiteral("Tele")},
             {QStringLiteral("enabled"), true},
             {QStringLiteral("preferredDataTransfer"), false},
             {QStringLiteral("preferredVoiceCall"), true}}};
}

} // namespace

// Stands in for the daemon's Storages object.
class StoragesStandIn : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.Storages")

public slots:
    QVariantMap getSystemStorageInfo()
    {
        return {{QStringLiteral("bytesTotal"), quint64(1) << 40},
                {QStringLiteral("bytesUsed"), quint64(1) << 30},
                {QStringLiteral("bytesUsedApps"), quint64(7)},
                {QStringLiteral("bytesUsedOther"), wrapped},
                {QStringLiteral("bytesUsedTomorrow"), quint64(9)}};
    }
    QVariantMap getInternalUserPartitionInfo()
    {
        // One user: the other users' figure is signed.
        return {{QStringLiteral("bytesUsedPictures"), quint64(100)},
                {QStringLiteral("bytesUsedOtherUsers"), qint64(0)},
                {QStringLiteral("deviceLabel"), QStringLiteral("alice partition")}};
    }
    QVariantMapList getExternalStorageDrivesInfo() { return {drive()}; }
    QuotaInfoMap getUsersQuotaInfo()
    {
        return {{QStringLiteral("100001"),
                 {{QStringLiteral("quotaIsSet"), true},
                  {QStringLiteral("quotaLimit"), quint64(1) << 20},
                  {QStringLiteral("quotaAvailable"), quint64(0)}}}};
    }
};

class SimStandIn : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.SIM")

public slots:
    QVariantMapList getSimCardsInfo() { return cards(); }
};

class TestPlinthClient : public QObject
{
    Q_OBJECT

    QDBusConnection server = QDBusConnection(QString());
    QDBusConnection impostor = QDBusConnection(QString());
    StoragesStandIn storagesStandIn;
    SimStandIn simStandIn;

    template <typename T>
    static T answerOf(QDBusPendingReply<T> reply)
    {
        // The stand-in answers from this thread's event loop.
        [&] { QTRY_VERIFY(reply.isFinished()); }();
        [&] { QVERIFY2(!reply.isError(), qPrintable(reply.error().message())); }();
        return reply.value();
    }

    static void emitFrom(QDBusConnection &bus, const QString &path, const QString &interface, const char *member,
                         const QVariant &argument)
    {
        QDBusMessage signal = QDBusMessage::createSignal(path, interface, QLatin1String(member));
        signal << argument;
        QVERIFY(bus.send(signal));
    }

private slots:
    void initTestCase()
    {
        PlinthTypes::registerVariantMapList();
        PlinthTypes::registerQuotaInfoMap();
        server = QDBusConnection::connectToBus(QDBusConnection::SystemBus, QStringLiteral("server"));
        impostor = QDBusConnection::connectToBus(QDBusConnection::SystemBus, QStringLiteral("impostor"));
        QVERIFY(server.isConnected());
        QVERIFY(server.registerObject(Plinth::storagesPath(), &storagesStandIn, QDBusConnection::ExportAllSlots));
        QVERIFY(server.registerObject(Plinth::simPath(), &simStandIn, QDBusConnection::ExportAllSlots));
        QVERIFY(server.registerService(Plinth::serviceName()));
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("server"));
        QDBusConnection::disconnectFromBus(QStringLiteral("impostor"));
    }

    void systemStorageIsTyped()
    {
        const Plinth::Storages storages;
        const Plinth::SystemStorage system = answerOf(storages.getSystemStorageInfo());
        QCOMPARE(system.bytesTotal(), quint64(1) << 40);
        QCOMPARE(system.bytesUsed(), quint64(1) << 30);
        QCOMPARE(system.bytesUsedBy(Plinth::SystemStorage::Apps), quint64(7));
        QCOMPARE(system.bytesUsedBy(Plinth::SystemStorage::SDK), quint64(0));
        // The wrapped-around difference reads 0, and says why.
        QVERIFY(system.categoriesExceedUsed());
        QCOMPARE(system.bytesUsedOther(), quint64(0));
        // What the library has no accessor for is kept, with its type.
        QCOMPARE(system.values().value(QStringLiteral("bytesUsedOther")).toULongLong(), wrapped);
        QCOMPARE(int(system.values().value(QStringLiteral("bytesUsedTomorrow")).userType()), int(QMetaType::ULongLong));
    }

    void userPartitionWithoutFullBreakdown()
    {
        const Plinth::Storages storages;
        const Plinth::UserPartition user = answerOf(storages.getInternalUserPartitionInfo());
        QVERIFY(user.hasBreakdown());
        QCOMPARE(user.bytesUsedIn(Plinth::UserPartition::Pictures), quint64(100));
        QVERIFY(user.hasOtherUsers());
        QCOMPARE(user.bytesUsedOtherUsers(), quint64(0));
        QCOMPARE(int(user.values().value(QStringLiteral("bytesUsedOtherUsers")).userType()), int(QMetaType::LongLong));
        QCOMPARE(user.deviceLabel(), QStringLiteral("alice partition"));
        QVERIFY(!Plinth::UserPartition(QVariantMap{{QStringLiteral("bytesTotal"), quint64(1)}}).hasBreakdown());
    }

    void drivesAndPartitions()
    {
        const Plinth::Storages storages;
        const Plinth::ExternalDriveList drives = answerOf(storages.getExternalStorageDrivesInfo());
        QCOMPARE(drives.size(), 1);
        const Plinth::ExternalDrive &only = drives.first();
        QCOMPARE(only.name(), QStringLiteral("Acme SD16G"));
        QCOMPARE(only.connection(), Plinth::ExternalDrive::USB);
        QCOMPARE(only.connectionName(), QStringLiteral("USB"));
        const QList<Plinth::ExternalPartition> partitions = only.partitions();
        QCOMPARE(partitions.size(), 2);
        QCOMPARE(partitions.at(0).name(), QStringLiteral("PHOTOS"));
        QVERIFY(partitions.at(0).isMounted());
        QCOMPARE(partitions.at(0).bytesAvailable(), qint64(3072));
        QCOMPARE(partitions.at(1).partitionLabel(), QStringLiteral("label-backup"));
        QVERIFY(!partitions.at(1).isMounted());
        QCOMPARE(partitions.at(1).bytesUsed(), qint64(4096));
        QCOMPARE(Plinth::ExternalDrive(QVariantMap{{QStringLiteral("driveType"), QStringLiteral("Thunder")}})
                     .connection(),
                 Plinth::ExternalDrive::Unknown);
    }

    void quotasByUid()
    {
        const Plinth::Storages storages;
        const Plinth::UserQuotaMap quotas = answerOf(storages.getUsersQuotaInfo());
        QCOMPARE(quotas.keys(), QStringList{QStringLiteral("100001")});
        QVERIFY(quotas.first().isSet());
        QCOMPARE(quotas.first().limit(), quint64(1) << 20);
        QCOMPARE(quotas.first().available(), quint64(0));
    }

    void simCards()
    {
        const Plinth::Sim sim;
        const Plinth::SimCardList list = answerOf(sim.getSimCardsInfo());
        QCOMPARE(list.size(), 1);
        QCOMPARE(list.first().name(), QStringLiteral("SIM2"));
        QCOMPARE(list.first().operatorName(), QStringLiteral("Tele"));
        QVERIFY(list.first().isEnabled());
        QVERIFY(!list.first().isPreferredForData());
        QVERIFY(list.first().isPreferredForVoice());
    }

    void sizesOfEitherSignedness()
    {
        const Plinth::StorageFigures figures(QVariantMap{{QStringLiteral("bytesTotal"), qint64(-1)},
                                                         {QStringLiteral("bytesUsed"), qint64(5)}});
        QCOMPARE(figures.bytesTotal(), quint64(0));
        QCOMPARE(figures.bytesUsed(), quint64(5));
        QCOMPARE(figures.bytesAvailable(), quint64(0));
        const Plinth::ExternalPartition partition(
            QVariantMap{{QStringLiteral("bytesTotal"), std::numeric_limits<quint64>::max()}});
        QCOMPARE(partition.bytesTotal(), std::numeric_limits<qint64>::max());
    }

    void typedSignalsFromTheDaemonOnly()
    {
        Plinth::Storages storages;
        Plinth::Sim sim;
        QSignalSpy drives(&storages, &Plinth::Storages::externalDriveChanged);
        QSignalSpy summaries(&storages, &Plinth::Storages::externalStorageChanged);
        QSignalSpy enabled(&sim, &Plinth::Sim::simCardsEnabledChanged);
        QSignalSpy voice(&sim, &Plinth::Sim::preferredVoiceCallSimChanged);
        // Anybody may emit with the daemon's path and interface.
        emitFrom(impostor, Plinth::storagesPath(), Plinth::storagesInterface(), "externalDriveChanged",
                 QVariantMap{{QStringLiteral("driveName"), QStringLiteral("fake")}});
        emitFrom(server, Plinth::storagesPath(), Plinth::storagesInterface(), "externalDriveChanged", drive());
        emitFrom(server, Plinth::storagesPath(), Plinth::storagesInterface(), "externalStorageChanged", QVariantMap());
        emitFrom(server, Plinth::simPath(), Plinth::simInterface(), "preferredVoiceCallSimChanged",
                 QVariant::fromValue(cards()));
        QTRY_COMPARE(voice.count(), 1);
        QTRY_COMPARE(drives.count(), 1);
        QCOMPARE(enabled.count(), 0);
        const auto changed = drives.first().first().value<Plinth::ExternalDrive>();
        QCOMPARE(changed.name(), QStringLiteral("Acme SD16G"));
        QCOMPARE(changed.partitions().size(), 2);
        QCOMPARE(summaries.count(), 1);
        QVERIFY(summaries.first().first().value<Plinth::ExternalStorageSummary>().isEmpty());
        QCOMPARE(voice.first().first().value<Plinth::SimCardList>().first().name(), QStringLiteral("SIM2"));
    }

    void cameraSignal()
    {
        Plinth::Features features;
        QSignalSpy spy(&features, &Plinth::Features::cameraEnabledChanged);
        emitFrom(server, Plinth::featuresPath(), Plinth::featuresInterface(), "cameraEnabledChanged", true);
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(spy.first().first().toBool(), true);
    }

    // Last: gives the name back and takes it again.
    void daemonComesAndGoes()
    {
        Plinth::Daemon daemon;
        // This bus has no activation file for the daemon, on which the bus
        // itself refuses to start it even while it runs; start() answers
        // that it runs once the object has heard from the bus (the monitor
        // test starts it for real). The bus answers in order: this answer
        // comes after the one to the object's own first question.
        const QString owner = answerOf(daemon.owner());
        QCOMPARE(owner, server.baseService());
        QCOMPARE(answerOf(daemon.start()), uint(Plinth::Daemon::AlreadyRunning));
        QSignalSpy vanished(&daemon, &Plinth::Daemon::vanished);
        QSignalSpy appeared(&daemon, &Plinth::Daemon::appeared);
        // The watcher's subscription is on its way to the bus: a round trip
        // after it makes sure it is there.
        answerOf(daemon.owner());
        QVERIFY(server.unregisterService(Plinth::serviceName()));
        QTRY_COMPARE(vanished.count(), 1);
        QCOMPARE(vanished.first().first().toString(), owner);
        QDBusPendingReply<QString> none = daemon.owner();
        QTRY_VERIFY(none.isFinished());
        QCOMPARE(none.error().name(), QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner"));
        // Gone, and nothing here can start it.
        QDBusPendingReply<uint> refused = daemon.start();
        QTRY_VERIFY(refused.isFinished());
        QCOMPARE(refused.error().name(), QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown"));
        QVERIFY(server.registerService(Plinth::serviceName()));
        QTRY_COMPARE(appeared.count(), 1);
        QCOMPARE(appeared.first().first().toString(), owner);
        QCOMPARE(answerOf(daemon.start()), uint(Plinth::Daemon::AlreadyRunning));
    }
};

QTEST_GUILESS_MAIN(TestPlinthClient)
#include "tst_plinthclient.moc"
