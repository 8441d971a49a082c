// SPDX-License-Identifier: BSD-3-Clause
#include <accesspolicy.h>
#include <policymanager.h>

#include "messagecapture.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QXmlStreamReader>

// The policy manager is played by extra connections of this process to the
// private system bus; the names it uses come from the contract in dbus/, so the
// listener is tested against the documented interface rather than its own
// constants.
class TestAccessPolicy : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void contractMatchesListener();
    void managerPresentAtStart();
    void managerAppearingLater();
    void eachAnnouncementCounts();
    void otherSendersAndObjectsAreIgnored();
    void newOwnerOfTheNameIsHeard();
    void listensExactlyWhenTheBusIsReachable();

private:
    QDBusConnection connectPeer(const QString &name);
    QDBusConnection startManager(const QString &name);
    // Sends the contract's signal from the given connection and waits until the
    // bus has routed it: the blocking call after it is answered only then.
    void announce(QDBusConnection connection, const QString &path, const QString &interface);

    QString m_service;
    QString m_path;
    QString m_interface;
    QString m_signal;
    int m_signalArguments = -1;
    QStringList m_peers;
};

void TestAccessPolicy::initTestCase()
{
    QFile contract(qEnvironmentVariable("PLINTHD_SOURCE_DIR") + QStringLiteral("/dbus/org.norvu.PolicyManager.xml"));
    QVERIFY2(contract.open(QIODevice::ReadOnly), qPrintable(contract.fileName()));
    QXmlStreamReader xml(&contract);
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (xml.name() == QLatin1String("node")) {
            m_path = xml.attributes().value(QLatin1String("name")).toString();
        } else if (xml.name() == QLatin1String("interface")) {
            m_interface = xml.attributes().value(QLatin1String("name")).toString();
        } else if (xml.name() == QLatin1String("signal")) {
            m_signal = xml.attributes().value(QLatin1String("name")).toString();
            m_signalArguments = 0;
        } else if (xml.name() == QLatin1String("arg") && m_signalArguments >= 0) {
            ++m_signalArguments;
        }
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
    // The manager's bus name is the name of its interface.
    m_service = m_interface;
}

void TestAccessPolicy::cleanup()
{
    for (const QString &peer : qAsConst(m_peers))
        QDBusConnection::disconnectFromBus(peer);
    m_peers.clear();
}

QDBusConnection TestAccessPolicy::connectPeer(const QString &name)
{
    m_peers.append(name);
    return QDBusConnection::connectToBus(QDBusConnection::SystemBus, name);
}

QDBusConnection TestAccessPolicy::startManager(const QString &name)
{
    QDBusConnection manager = connectPeer(name);
    if (!manager.registerService(m_service))
        qFatal("cannot own %s", qPrintable(m_service));
    return manager;
}

void TestAccessPolicy::announce(QDBusConnection connection, const QString &path, const QString &interface)
{
    QVERIFY(connection.send(QDBusMessage::createSignal(path, interface, m_signal)));
    QVERIFY(connection.interface()->isServiceRegistered(QStringLiteral("org.freedesktop.DBus")).value());
}

void TestAccessPolicy::contractMatchesListener()
{
    QCOMPARE(m_path, QString::fromLatin1(PolicyManager::ObjectPath));
    QCOMPARE(m_interface, QString::fromLatin1(PolicyManager::InterfaceName));
    QCOMPARE(m_service, QString::fromLatin1(PolicyManager::ServiceName));
    QCOMPARE(m_signal, QString::fromLatin1(PolicyManager::CameraAccessChangedSignal));
    QCOMPARE(m_signalArguments, 0);
    QCOMPARE(m_service, QStringLiteral("org.norvu.PolicyManager"));
}

void TestAccessPolicy::managerPresentAtStart()
{
    QDBusConnection manager = startManager(QStringLiteral("manager"));
    Brisa::AccessPolicy policy;
    QSignalSpy changed(&policy, &Brisa::AccessPolicy::cameraEnabledChanged);

    announce(manager, m_path, m_interface);

    QTRY_COMPARE(changed.count(), 1);
    QCOMPARE(changed.first().count(), 0);
}

void TestAccessPolicy::managerAppearingLater()
{
    Brisa::AccessPolicy policy;
    QSignalSpy changed(&policy, &Brisa::AccessPolicy::cameraEnabledChanged);
    QDBusConnection manager = startManager(QStringLiteral("late-manager"));

    announce(manager, m_path, m_interface);

    QTRY_COMPARE(changed.count(), 1);
}

void TestAccessPolicy::eachAnnouncementCounts()
{
    QDBusConnection manager = startManager(QStringLiteral("manager"));
    Brisa::AccessPolicy policy;
    QSignalSpy changed(&policy, &Brisa::AccessPolicy::cameraEnabledChanged);

    for (int i = 0; i < 3; ++i)
        announce(manager, m_path, m_interface);

    QTRY_COMPARE(changed.count(), 3);
}

void TestAccessPolicy::otherSendersAndObjectsAreIgnored()
{
    QDBusConnection manager = startManager(QStringLiteral("manager"));
    QDBusConnection impostor = connectPeer(QStringLiteral("impostor"));
    Brisa::AccessPolicy policy;
    QSignalSpy changed(&policy, &Brisa::AccessPolicy::cameraEnabledChanged);

    announce(impostor, m_path, m_interface);
    announce(manager, QStringLiteral("/org/norvu/PolicyManager/Other"), m_interface);
    announce(manager, m_path, QStringLiteral("org.norvu.PolicyManager.Other"));
    // Delivered after everything above, so once it is counted the others have
    // had their chance.
    announce(manager, m_path, m_interface);

    QTRY_COMPARE(changed.count(), 1);
    QTest::qWait(100);
    QCOMPARE(changed.count(), 1);
}

void TestAccessPolicy::newOwnerOfTheNameIsHeard()
{
    QDBusConnection first = startManager(QStringLiteral("first-manager"));
    Brisa::AccessPolicy policy;
    QSignalSpy changed(&policy, &Brisa::AccessPolicy::cameraEnabledChanged);
    announce(first, m_path, m_interface);
    QTRY_COMPARE(changed.count(), 1);

    QVERIFY(first.unregisterService(m_service));
    QDBusConnection second = startManager(QStringLiteral("second-manager"));
    announce(first, m_path, m_interface);
    announce(second, m_path, m_interface);

    QTRY_COMPARE(changed.count(), 2);
    QTest::qWait(100);
    QCOMPARE(changed.count(), 2);
}

// Run with the other functions on a private bus, and a second time by ctest
// with no reachable system bus (see CMakeLists): that run alone has nothing to
// listen on, and says so; with a bus it listens (the other functions hear the
// manager) and says nothing.
void TestAccessPolicy::listensExactlyWhenTheBusIsReachable()
{
    const bool reachable = QDBusConnection::systemBus().isConnected();
    MessageCapture capture;
    Brisa::AccessPolicy policy;
    const QRegularExpression cannotListen(QStringLiteral("^Can't listen to the policy manager"));
    int warnings = 0;
    for (const MessageCapture::Message &message : capture.messages())
        warnings += message.type == QtWarningMsg && cannotListen.match(message.text).hasMatch() ? 1 : 0;
    QCOMPARE(warnings, reachable ? 0 : 1);
}

QTEST_GUILESS_MAIN(TestAccessPolicy)

#include "tst_accesspolicy.moc"
