// SPDX-License-Identifier: BSD-3-Clause
// BasicService on a private system bus (PRIVATE_BUS in CMakeLists).
#include "basicservice.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QtTest>

namespace {

const QString NameA = QStringLiteral("org.norvu.plinth.test.A");
const QString NameB = QStringLiteral("org.norvu.plinth.test.B");
const QString PathA = QStringLiteral("/test/a");
const QString PathB = QStringLiteral("/test/b");

bool nameOwnedByUs(const QString &name)
{
    QDBusConnection bus = QDBusConnection::systemBus();
    const QDBusReply<QString> owner = bus.interface()->serviceOwner(name);
    return owner.isValid() && owner.value() == bus.baseService();
}

bool pathExported(const QString &path)
{
    return QDBusConnection::systemBus().objectRegisteredAt(path) != nullptr;
}

} // namespace

class TestBasicService : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::systemBus().isConnected(), "needs a system bus");
    }

    void registersPathAndName()
    {
        QObject parent;
        auto *service = new BasicService(NameA, PathA, &parent);
        QVERIFY(service->isRegistered());
        QCOMPARE(service->serviceName(), NameA);
        QCOMPARE(service->objectPath(), PathA);
        QVERIFY(pathExported(PathA));
        QVERIFY(nameOwnedByUs(NameA));

        delete service;
        QVERIFY(!pathExported(PathA));
        QVERIFY(!nameOwnedByUs(NameA));
    }

    void secondRegistrationMovesIt()
    {
        QObject parent;
        BasicService service(NameA, PathA, &parent);
        QVERIFY(service.isRegistered());

        QVERIFY(service.registerService(NameB, PathB));
        QVERIFY(service.isRegistered());
        QVERIFY(!pathExported(PathA));
        QVERIFY(!nameOwnedByUs(NameA));
        QVERIFY(pathExported(PathB));
        QVERIFY(nameOwnedByUs(NameB));
        QCOMPARE(service.serviceName(), NameB);
        QCOMPARE(service.objectPath(), PathB);
    }

    void unregisterClearsEverything()
    {
        QObject parent;
        BasicService service(NameA, PathA, &parent);
        service.unregisterService();
        QVERIFY(!service.isRegistered());
        QVERIFY(service.serviceName().isEmpty());
        QVERIFY(service.objectPath().isEmpty());
        QVERIFY(!pathExported(PathA));
        QVERIFY(!nameOwnedByUs(NameA));
    }

    void nameOwnedElsewhereLeavesPathExported()
    {
        QDBusConnection other = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "other-owner");
        QVERIFY(other.isConnected());
        QVERIFY(other.registerService(NameA));

        QObject parent;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^Unable to register org.norvu.plinth.test.A service!"));
        BasicService service(NameA, PathA, &parent);
        QVERIFY(!service.isRegistered());
        QVERIFY(service.serviceName().isEmpty());
        QVERIFY(service.objectPath().isEmpty());
        QVERIFY(pathExported(PathA));

        // The path was not recorded, so giving the registration back leaves it.
        service.unregisterService();
        QVERIFY(pathExported(PathA));

        QDBusConnection::systemBus().unregisterObject(PathA);
        other.unregisterService(NameA);
        QDBusConnection::disconnectFromBus("other-owner");
    }

    void pathTakenIsRefused()
    {
        QObject parent;
        BasicService first(NameA, PathA, &parent);
        QVERIFY(first.isRegistered());
        QTest::ignoreMessage(QtWarningMsg, "Object /test/a registration failed!");
        BasicService second(NameB, PathA, &parent);
        QVERIFY(!second.isRegistered());
        QVERIFY(!nameOwnedByUs(NameB));
    }

    void objectWithoutParentIsRefused()
    {
        QTest::ignoreMessage(QtCriticalMsg, "ERROR: The object has no parent!");
        BasicService orphan(NameA, PathA, nullptr);
        QVERIFY(!orphan.isRegistered());
        QVERIFY(!pathExported(PathA));
        QVERIFY(!nameOwnedByUs(NameA));
    }

    void orphanKeepsAnEarlierRegistration()
    {
        QObject parent;
        BasicService service(NameA, PathA, &parent);
        service.setParent(nullptr);
        QTest::ignoreMessage(QtCriticalMsg, "ERROR: The object has no parent!");
        QVERIFY(service.registerService(NameB, PathB));
        QVERIFY(pathExported(PathA));
        QVERIFY(!pathExported(PathB));
    }

    void destroyingOneServiceReleasesTheSharedName()
    {
        QObject parent;
        auto *first = new BasicService(NameA, PathA, &parent);
        BasicService second(NameA, PathB, &parent);
        QVERIFY(first->isRegistered());
        QVERIFY(second.isRegistered());
        delete first;
        QVERIFY(!nameOwnedByUs(NameA));
        QVERIFY(pathExported(PathB));
    }
};

QTEST_GUILESS_MAIN(TestBasicService)
#include "tst_basicservice.moc"
