// SPDX-License-Identifier: BSD-3-Clause
// FeaturesService on a private system bus (PRIVATE_BUS in CMakeLists): what
// its hardware provider announces reaches the bus. Its answers are checked
// where their inputs are known: on faked kernel and distribution files through
// the real daemon (tests/integration/test_features.py).
#include "featuresservice.h"
#include "sysinfo.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QtTest>

namespace {

const QString Service = QStringLiteral("org.norvu.plinth");
const QString Path = QStringLiteral("/org/norvu/plinth/Features");
const QString Interface = QStringLiteral("org.norvu.plinth.Features");

} // namespace

// Receives bus signals on a connection of its own, as another process would.
class SignalCatcher : public QObject
{
    Q_OBJECT

public:
    QList<QDBusMessage> caught;

public slots:
    void catchMessage(const QDBusMessage &message) { caught.append(message); }
};

class TestFeaturesService : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::systemBus().isConnected(), "needs a system bus");
    }

    void cameraNoticeIsRelayedToTheBus()
    {
        QObject parent;
        auto *service = new FeaturesService(&parent);
        QVERIFY(service->isRegistered());
        auto *sysInfo = service->findChild<SysInfo *>();
        QVERIFY(sysInfo);

        QDBusConnection listener = QDBusConnection::connectToBus(QDBusConnection::SystemBus, QStringLiteral("listener"));
        SignalCatcher catcher;
        QVERIFY(listener.connect(QString(), Path, Interface, QStringLiteral("cameraEnabledChanged"), &catcher,
                                 SLOT(catchMessage(QDBusMessage))));
        // The bus handles one connection's messages in order: once a call on
        // the listener has come back, its match rule is in place.
        QVERIFY(listener.interface()->isServiceRegistered(Service).value());
        QSignalSpy relayed(service, &FeaturesService::cameraEnabledChanged);
        // An adaptor joins the relaying of its object's signals from the event
        // loop; in the daemon the loop runs long before any notice can come.
        QCoreApplication::sendPostedEvents();

        emit sysInfo->cameraEnabledChanged(true);
        QCOMPARE(relayed.count(), 1);
        QCOMPARE(relayed.at(0).at(0).toBool(), true);
        QTRY_COMPARE(catcher.caught.size(), 1);
        const QDBusMessage message = catcher.caught.at(0);
        QCOMPARE(message.signature(), QStringLiteral("b"));
        QCOMPARE(message.arguments(), QVariantList{true});

        delete service;
        QDBusConnection::disconnectFromBus(QStringLiteral("listener"));
    }
};

QTEST_GUILESS_MAIN(TestFeaturesService)
#include "tst_featuresservice.moc"
