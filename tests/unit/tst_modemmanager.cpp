// SPDX-License-Identifier: BSD-3-Clause
#include "privatedconf.h"

#include <qofonoextmodemmanager.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString Ofono = QStringLiteral("org.ofono");
const QString MockInterface = QStringLiteral("org.freedesktop.DBus.Mock");
const QString SimManager = QStringLiteral("org.ofono.SimManager");
const QString ConnectionManager = QStringLiteral("org.ofono.ConnectionManager");

// How long an answer of the mock may take to show: far past what it takes
// (tens of milliseconds), because the sanitizer builds run on shared, loaded
// machines, where a Python mock and an instrumented test may be starved for
// seconds. Waiting that long costs nothing when the answer comes.
const int AnswerTimeout = 30000; // ms

// The subscriber identity the ofono template gives the SIM of its n-th modem.
QString imsi(int n)
{
    return QStringLiteral("310150%1").arg(n, 9, 10, QLatin1Char('0'));
}

// python3-dbusmock's ofono template (tests/harness/ofonomock.py) on the
// private system bus, driven through the mock's and the template's methods.
class OfonoMock
{
public:
    ~OfonoMock() { stop(); }

    bool start()
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.setStandardOutputFile(QProcess::nullDevice());
        m_process.start(QStringLiteral("/usr/bin/python3"),
                        {qEnvironmentVariable("PLINTHD_SOURCE_DIR") + QStringLiteral("/tests/harness/ofonomock.py")});
        if (!m_process.waitForStarted())
            return false;
        QDBusConnectionInterface *bus = QDBusConnection::systemBus().interface();
        QElapsedTimer waited;
        waited.start();
        while (waited.elapsed() < AnswerTimeout && m_process.state() == QProcess::Running) {
            if (bus->isServiceRegistered(Ofono))
                return true;
            QTest::qWait(20);
        }
        return false;
    }

    // Like oFono stopping: the mock removes its modems, then leaves the bus.
    void stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        // Killed only when it hangs: a mock killed early would leave without
        // removing its modems, which is another case (crash()).
        m_process.terminate();
        if (!m_process.waitForFinished(AnswerTimeout)) {
            m_process.kill();
            m_process.waitForFinished();
        }
    }

    // Like oFono dying: gone from the bus without a word.
    void crash()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    QString addModem(const QString &name)
    {
        const QDBusMessage reply = call(QStringLiteral("/"), MockInterface, QStringLiteral("AddModem"),
                                        {name, QVariantMap()});
        return reply.arguments().value(0).toString();
    }

    void removeModem(const QString &path)
    {
        call(QStringLiteral("/"), MockInterface, QStringLiteral("RemoveObject"), {QVariant::fromValue(QDBusObjectPath(path))});
        call(QStringLiteral("/"), MockInterface, QStringLiteral("EmitSignal"),
             {QStringLiteral("org.ofono.Manager"), QStringLiteral("ModemRemoved"), QStringLiteral("o"),
              QVariant::fromValue(QVariantList{QVariant::fromValue(QDBusObjectPath(path))})});
    }

    // The template's SetProperty stores the value and emits PropertyChanged.
    void setProperty(const QString &path, const QString &interface, const QString &name, const QVariant &value)
    {
        call(path, interface, QStringLiteral("SetProperty"), {name, QVariant::fromValue(QDBusVariant(value))});
    }

    void addMethod(const QString &interface, const QString &name, const QString &outSignature, const QString &code)
    {
        call(QStringLiteral("/"), MockInterface, QStringLiteral("AddMethod"),
             {interface, name, QString(), outSignature, code});
    }

private:
    QDBusMessage call(const QString &path, const QString &interface, const QString &method,
                      const QVariantList &arguments)
    {
        QDBusMessage message = QDBusMessage::createMethodCall(Ofono, path, interface, method);
        message.setArguments(arguments);
        const QDBusMessage reply = QDBusConnection::systemBus().call(message);
        if (reply.type() == QDBusMessage::ErrorMessage)
            qWarning() << "oFono mock:" << method << reply.errorMessage();
        return reply;
    }

    QProcess m_process;
};

} // namespace

class TestModemManager : public QObject
{
    Q_OBJECT

private:
    OfonoMock *m_ofono = nullptr;

private slots:
    void initTestCase()
    {
        if (!PrivateDconf::isReady())
            QSKIP("needs root and /etc/dconf for a private dconf database");
        QVERIFY(QDBusConnection::systemBus().isConnected());
    }

    void init()
    {
        QVERIFY(PrivateDconf::write(QByteArray()));
        m_ofono = new OfonoMock;
    }

    void cleanup()
    {
        delete m_ofono;
        m_ofono = nullptr;
    }

    void instanceIsShared()
    {
        QSharedPointer<QOfonoExtModemManager> first = QOfonoExtModemManager::instance();
        QSharedPointer<QOfonoExtModemManager> second = QOfonoExtModemManager::instance();
        QVERIFY(first);
        QCOMPARE(first.data(), second.data());
        QWeakPointer<QOfonoExtModemManager> weak = first;
        first.reset();
        second.reset();
        QVERIFY(!weak.toStrongRef());
        QVERIFY(QOfonoExtModemManager::instance());
    }

    void notReadyWithoutOfono()
    {
        QVERIFY(PrivateDconf::write("[veska/ofono]\ndefault_voice_sim='" + imsi(0).toUtf8() + "'\n"));
        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QSignalSpy readySpy(manager.data(), &QOfonoExtModemManager::readyChanged);
        QTest::qWait(300);
        QVERIFY(!manager->ready());
        QCOMPARE(readySpy.count(), 0);
        QVERIFY(manager->availableModems().isEmpty());
        // Default SIMs belong to the telephony state: nothing without oFono.
        QVERIFY(manager->defaultDataSim().isEmpty());
        QVERIFY(manager->defaultVoiceSim().isEmpty());
    }

    // Ready comes first, with the modem list in place; then the default SIMs.
    void readyBeforeDefaultSims()
    {
        QVERIFY(PrivateDconf::write("[veska/ofono]\ndefault_voice_sim='" + imsi(1).toUtf8() + "'\n"));
        QVERIFY(m_ofono->start());
        m_ofono->addModem(QStringLiteral("ril_1"));
        m_ofono->addModem(QStringLiteral("ril_0"));

        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QStringList log;
        connect(manager.data(), &QOfonoExtModemManager::readyChanged, this, [&](bool ready) {
            log << QStringLiteral("ready:%1 modems:%2 data:%3")
                       .arg(ready)
                       .arg(manager->availableModems().join(QLatin1Char(',')), manager->defaultDataSim());
        });
        connect(manager.data(), &QOfonoExtModemManager::defaultVoiceSimChanged, this,
                [&](const QString &sim) { log << QStringLiteral("voice:") + sim; });
        connect(manager.data(), &QOfonoExtModemManager::defaultDataSimChanged, this,
                [&](const QString &sim) { log << QStringLiteral("data:") + sim; });

        QTRY_VERIFY_WITH_TIMEOUT(!manager->defaultDataSim().isEmpty(), AnswerTimeout);
        QCOMPARE(log, QStringList({QStringLiteral("ready:1 modems:/ril_0,/ril_1 data:"),
                                   QStringLiteral("voice:") + imsi(1),
                                   // Path order, not the order oFono lists them in.
                                   QStringLiteral("data:") + imsi(1)}));
        QVERIFY(manager->ready());
        QCOMPARE(manager->availableModems(), QStringList({QStringLiteral("/ril_0"), QStringLiteral("/ril_1")}));
    }

    void dataSimFollowsConnectionManagers()
    {
        QVERIFY(m_ofono->start());
        const QString first = m_ofono->addModem(QStringLiteral("ril_0"));
        const QString second = m_ofono->addModem(QStringLiteral("ril_1"));
        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QSignalSpy dataSpy(manager.data(), &QOfonoExtModemManager::defaultDataSimChanged);
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);

        m_ofono->setProperty(first, ConnectionManager, QStringLiteral("Powered"), false);
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(1), AnswerTimeout);
        m_ofono->setProperty(second, ConnectionManager, QStringLiteral("Powered"), false);
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), QString(), AnswerTimeout);
        m_ofono->setProperty(first, ConnectionManager, QStringLiteral("Powered"), true);
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);
        QCOMPARE(dataSpy.count(), 4);
        QCOMPARE(dataSpy.at(1).at(0).toString(), imsi(1));
        QCOMPARE(dataSpy.at(2).at(0).toString(), QString());
    }

    void dataSimFollowsTheCard()
    {
        QVERIFY(m_ofono->start());
        const QString first = m_ofono->addModem(QStringLiteral("ril_0"));
        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);

        m_ofono->setProperty(first, SimManager, QStringLiteral("SubscriberIdentity"), QStringLiteral("424242"));
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), QStringLiteral("424242"), AnswerTimeout);
        // A card without an identity, and no card at all.
        m_ofono->setProperty(first, SimManager, QStringLiteral("SubscriberIdentity"), QString());
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), QString(), AnswerTimeout);
        m_ofono->setProperty(first, SimManager, QStringLiteral("SubscriberIdentity"), imsi(0));
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);
        m_ofono->setProperty(first, SimManager, QStringLiteral("Present"), false);
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), QString(), AnswerTimeout);
        // A card coming back is read afresh.
        m_ofono->setProperty(first, SimManager, QStringLiteral("Present"), true);
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);
    }

    // The modem's interfaces come and go with its state.
    void dataSimFollowsModemInterfaces()
    {
        QVERIFY(m_ofono->start());
        const QString first = m_ofono->addModem(QStringLiteral("ril_0"));
        m_ofono->addModem(QStringLiteral("ril_1"));
        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);

        const QString modem = QStringLiteral("org.ofono.Modem");
        m_ofono->setProperty(first, modem, QStringLiteral("Interfaces"), QStringList{SimManager});
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(1), AnswerTimeout);
        m_ofono->setProperty(first, modem, QStringLiteral("Interfaces"), QStringList{ConnectionManager});
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), QString(), AnswerTimeout);
        m_ofono->setProperty(first, modem, QStringLiteral("Interfaces"),
                             QStringList{ConnectionManager, SimManager});
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);
    }

    void modemsAddedAndRemoved()
    {
        QVERIFY(m_ofono->start());
        const QString first = m_ofono->addModem(QStringLiteral("ril_0"));
        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QSignalSpy readySpy(manager.data(), &QOfonoExtModemManager::readyChanged);
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);

        m_ofono->addModem(QStringLiteral("ril_1"));
        QTRY_COMPARE_WITH_TIMEOUT(manager->availableModems(), QStringList({QStringLiteral("/ril_0"), QStringLiteral("/ril_1")}), AnswerTimeout);

        // Removed while it carries the data SIM: data moves to the other one.
        m_ofono->removeModem(first);
        QTRY_COMPARE_WITH_TIMEOUT(manager->availableModems(), QStringList({QStringLiteral("/ril_1")}), AnswerTimeout);
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(1), AnswerTimeout);
        QCOMPARE(readySpy.count(), 1);
        QVERIFY(manager->ready());
    }

    void ofonoLeavesAndComesBack()
    {
        QVERIFY(PrivateDconf::write("[veska/ofono]\ndefault_voice_sim='" + imsi(0).toUtf8() + "'\n"));
        QVERIFY(m_ofono->start());
        m_ofono->addModem(QStringLiteral("ril_0"));
        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);
        QCOMPARE(manager->defaultVoiceSim(), imsi(0));

        QStringList log;
        connect(manager.data(), &QOfonoExtModemManager::readyChanged, this,
                [&](bool ready) { log << QStringLiteral("ready:%1").arg(ready); });
        connect(manager.data(), &QOfonoExtModemManager::defaultVoiceSimChanged, this,
                [&](const QString &sim) { log << QStringLiteral("voice:") + sim; });
        connect(manager.data(), &QOfonoExtModemManager::defaultDataSimChanged, this,
                [&](const QString &sim) { log << QStringLiteral("data:") + sim; });
        // oFono stopping removes its modems first: the data SIM goes with its
        // modem, then readiness and the voice SIM go with oFono.
        m_ofono->stop();
        QTRY_VERIFY_WITH_TIMEOUT(!manager->ready(), AnswerTimeout);
        QVERIFY(manager->availableModems().isEmpty());
        QCOMPARE(log, QStringList({QStringLiteral("data:"), QStringLiteral("ready:0"), QStringLiteral("voice:")}));

        log.clear();
        QVERIFY(m_ofono->start());
        m_ofono->addModem(QStringLiteral("ril_0"));
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);
        QCOMPARE(log.value(0), QStringLiteral("ready:1"));
        QCOMPARE(manager->availableModems(), QStringList({QStringLiteral("/ril_0")}));
        QCOMPARE(manager->defaultVoiceSim(), imsi(0));

        // oFono dying says nothing: readiness goes first, then both SIMs.
        log.clear();
        m_ofono->crash();
        QTRY_VERIFY_WITH_TIMEOUT(!manager->ready(), AnswerTimeout);
        QVERIFY(manager->availableModems().isEmpty());
        QCOMPARE(log, QStringList({QStringLiteral("ready:0"), QStringLiteral("voice:"), QStringLiteral("data:")}));
    }

    void voiceSimFollowsTheSetting()
    {
        QVERIFY(m_ofono->start());
        m_ofono->addModem(QStringLiteral("ril_0"));
        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QTRY_VERIFY_WITH_TIMEOUT(manager->ready(), AnswerTimeout);
        QCOMPARE(manager->defaultVoiceSim(), QString());
        QSignalSpy voiceSpy(manager.data(), &QOfonoExtModemManager::defaultVoiceSimChanged);

        QVERIFY(PrivateDconf::write("[veska/ofono]\ndefault_voice_sim='" + imsi(0).toUtf8() + "'\n"));
        QTRY_COMPARE_WITH_TIMEOUT(voiceSpy.count(), 1, AnswerTimeout);
        QCOMPARE(voiceSpy.at(0).at(0).toString(), imsi(0));
        QCOMPARE(manager->defaultVoiceSim(), imsi(0));

        // Another key changing leaves the voice SIM alone.
        QVERIFY(PrivateDconf::write("[veska/ofono]\ndefault_voice_sim='" + imsi(0).toUtf8()
                                    + "'\nvoice_sim_usage_mode=1\n"));
        QTest::qWait(200);
        QCOMPARE(voiceSpy.count(), 1);

        QVERIFY(PrivateDconf::write(QByteArray()));
        QTRY_COMPARE_WITH_TIMEOUT(voiceSpy.count(), 2, AnswerTimeout);
        QCOMPARE(manager->defaultVoiceSim(), QString());
    }

    // A modem list that is not a(oa{sv}) is a list that could not be read:
    // nothing is listed, and oFono is asked again until it answers with one.
    void malformedModemListIsAskedAgain()
    {
        QVERIFY(m_ofono->start());
        m_ofono->addModem(QStringLiteral("ril_0"));
        m_ofono->addMethod(QStringLiteral("org.ofono.Manager"), QStringLiteral("GetModems"), QStringLiteral("as"),
                           QStringLiteral("ret = ['/ril_0']"));
        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QSignalSpy readySpy(manager.data(), &QOfonoExtModemManager::readyChanged);
        QTest::qWait(500);
        QCOMPARE(readySpy.count(), 0);
        QVERIFY(manager->availableModems().isEmpty());
        QCOMPARE(manager->defaultDataSim(), QString());

        m_ofono->addMethod(QStringLiteral("org.ofono.Manager"), QStringLiteral("GetModems"), QStringLiteral("a(oa{sv})"),
                           QStringLiteral("ret = [(m, objects[m].GetAll('org.ofono.Modem')) for m in self.modems]"));
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);
        QCOMPARE(manager->availableModems(), QStringList({QStringLiteral("/ril_0")}));
    }

    // oFono that fails its first answers (as one that is still starting) is
    // asked again.
    void failingModemListIsAskedAgain()
    {
        QVERIFY(m_ofono->start());
        m_ofono->addModem(QStringLiteral("ril_0"));
        m_ofono->addMethod(QStringLiteral("org.ofono.Manager"), QStringLiteral("GetModems"), QStringLiteral("a(oa{sv})"),
                           QStringLiteral("self.failures = getattr(self, 'failures', 0) + 1\n"
                                          "if self.failures < 3:\n"
                                          "    raise dbus.exceptions.DBusException('starting', "
                                          "name='org.ofono.Error.InProgress')\n"
                                          "ret = [(m, objects[m].GetAll('org.ofono.Modem')) for m in self.modems]"));
        QSharedPointer<QOfonoExtModemManager> manager = QOfonoExtModemManager::instance();
        QTRY_COMPARE_WITH_TIMEOUT(manager->defaultDataSim(), imsi(0), AnswerTimeout);
        QCOMPARE(manager->availableModems(), QStringList({QStringLiteral("/ril_0")}));
    }
};

int main(int argc, char *argv[])
{
    PrivateDconf::enter();
    QCoreApplication app(argc, argv);
    TestModemManager test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_modemmanager.moc"
