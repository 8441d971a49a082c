// SPDX-License-Identifier: BSD-3-Clause
// The client's bus side on a private system bus (PRIVATE_BUS in CMakeLists):
// values as they really arrive from the wire, and batches of calls.
#include "busquery.h"
#include "dbustypes.h"

#include <plinth/plainvalue.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QThread>
#include <QtTest>

#include <limits>

using namespace PlinthCtl;
using Plinth::plainValue;

namespace {

const QString busName = QStringLiteral("org.norvu.plinth");
const QString path = QStringLiteral("/org/norvu/plinth/Test");
const QString interface = QStringLiteral("org.norvu.plinth.test.Answers");

// One call of the stand-in, sent as the client's requests are.
QDBusPendingCall send(const QDBusConnection &bus, const QString &method, int timeoutMs = BusQuery::defaultTimeoutMs)
{
    return bus.asyncCall(QDBusMessage::createMethodCall(busName, path, interface, method), timeoutMs);
}

} // namespace

// Stands in for the daemon: answers with whatever the test put in `reply`.
class Answers : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.test.Answers")

public:
    // Set on the test's thread, read on the stand-in's: the bus round trip
    // orders the two, but only inside uninstrumented libraries, so the value
    // travels under a lock that ThreadSanitizer sees.
    void setReply(const QVariant &value)
    {
        QMutexLocker locker(&replyLock);
        reply = value;
    }

public slots:
    QDBusVariant value()
    {
        QMutexLocker locker(&replyLock);
        return QDBusVariant(reply);
    }
    QVariantMap first() { return {{QStringLiteral("one"), 1u}}; }
    QVariantMap second() { return {{QStringLiteral("two"), QStringLiteral("2")}}; }
    QString never()
    {
        setDelayedReply(true);
        return QString();
    }

private:
    QMutex replyLock;
    QVariant reply;
};

class TestPlinthCtlBus : public QObject
{
    Q_OBJECT

    // The calls below block the test's thread until the answer arrives, so
    // the stand-in answers from a thread of its own.
    QThread serverThread;
    Answers *answers = nullptr;
    QDBusConnection server = QDBusConnection(QString());

    // The value as the client receives it: a reply from another connection.
    QVariant received(const QVariant &value)
    {
        answers->setReply(value);
        const QDBusMessage reply = QDBusConnection::systemBus().call(
            QDBusMessage::createMethodCall(busName, path, interface, QStringLiteral("value")));
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 1)
            return QVariant(QStringLiteral("no reply: ") + reply.errorMessage());
        return reply.arguments().first();
    }

private slots:
    void initTestCase()
    {
        PlinthTypes::registerVariantMapList();
        PlinthTypes::registerQuotaInfoMap();
        PlinthTypes::registerVariantMap();
        answers = new Answers;
        answers->moveToThread(&serverThread);
        serverThread.start();
        server = QDBusConnection::connectToBus(QDBusConnection::SystemBus, QStringLiteral("server"));
        QVERIFY(server.isConnected());
        QVERIFY(server.registerObject(path, answers, QDBusConnection::ExportAllSlots));
        QVERIFY(server.registerService(busName));
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("server"));
        answers->deleteLater();
        serverThread.quit();
        serverThread.wait();
    }

    void mapListKeepsIntegerTypes()
    {
        const QVariantMapList cards{
            {{QStringLiteral("t"), QVariant::fromValue(std::numeric_limits<quint64>::max())},
             {QStringLiteral("x"), QVariant::fromValue(qint64(-5))},
             {QStringLiteral("b"), true},
             {QStringLiteral("d"), 1.5},
             {QStringLiteral("s"), QStringLiteral("SIM1")}},
            {}};
        const QVariant raw = received(QVariant::fromValue(cards));
        // Structured values arrive still marshalled, inside the variant.
        QCOMPARE(raw.userType(), qMetaTypeId<QDBusVariant>());
        QCOMPARE(raw.value<QDBusVariant>().variant().userType(), qMetaTypeId<QDBusArgument>());
        const QVariant plain = plainValue(raw);
        QCOMPARE(int(plain.userType()), int(QMetaType::QVariantList));
        const QVariantList list = plain.toList();
        QCOMPARE(list.size(), 2);
        const QVariantMap card = list.first().toMap();
        QCOMPARE(int(card.value(QStringLiteral("t")).userType()), int(QMetaType::ULongLong));
        QCOMPARE(card.value(QStringLiteral("t")).toULongLong(), std::numeric_limits<quint64>::max());
        QCOMPARE(int(card.value(QStringLiteral("x")).userType()), int(QMetaType::LongLong));
        QCOMPARE(card.value(QStringLiteral("x")).toLongLong(), qint64(-5));
        QCOMPARE(int(card.value(QStringLiteral("b")).userType()), int(QMetaType::Bool));
        QCOMPARE(card.value(QStringLiteral("d")).toDouble(), 1.5);
        QCOMPARE(card.value(QStringLiteral("s")).toString(), QStringLiteral("SIM1"));
        QCOMPARE(list.at(1).toMap(), QVariantMap());
    }

    void quotaMapBecomesNestedMaps()
    {
        const QuotaInfoMap quota{{QStringLiteral("100000"),
                                  {{QStringLiteral("quotaIsSet"), false},
                                   {QStringLiteral("quotaLimit"), QVariant::fromValue(quint64(1) << 33)}}},
                                 {QStringLiteral("100001"), {}}};
        const QVariantMap plain = plainValue(received(QVariant::fromValue(quota))).toMap();
        QCOMPARE(plain.keys(), (QStringList{QStringLiteral("100000"), QStringLiteral("100001")}));
        const QVariantMap owner = plain.value(QStringLiteral("100000")).toMap();
        QCOMPARE(owner.value(QStringLiteral("quotaLimit")).toULongLong(), quint64(1) << 33);
        QCOMPARE(int(owner.value(QStringLiteral("quotaLimit")).userType()), int(QMetaType::ULongLong));
        QCOMPARE(plain.value(QStringLiteral("100001")).toMap(), QVariantMap());
    }

    void variantArraysAndStringArrays()
    {
        const QVariantList clocks{QVariant::fromValue(QDBusVariant(1800u)), QVariant::fromValue(QDBusVariant(2400u))};
        const QVariantList plainClocks = plainValue(received(QVariant::fromValue(clocks))).toList();
        QCOMPARE(plainClocks, (QVariantList{1800u, 2400u}));
        QCOMPARE(int(plainClocks.first().userType()), int(QMetaType::UInt));

        const QVariant names = plainValue(received(QStringList{QStringLiteral("a"), QStringLiteral("b")}));
        QCOMPARE(int(names.userType()), int(QMetaType::QVariantList));
        QCOMPARE(names.toList(), (QVariantList{QStringLiteral("a"), QStringLiteral("b")}));

        const QVariant nested = plainValue(received(QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusVariant(7))))));
        QCOMPARE(nested, QVariant(7));
        QCOMPARE(plainValue(received(QVariant::fromValue(QDBusObjectPath(path)))), QVariant(path));
    }

    void batchAssemblesOneDocument()
    {
        BusQuery query(QDBusConnection::systemBus());
        query.add({QStringLiteral("a"), QStringLiteral("b")}, QStringLiteral("first"),
                  send(query.connection(), QStringLiteral("first")));
        query.add({QStringLiteral("a"), QStringLiteral("c")}, QStringLiteral("second"),
                  send(query.connection(), QStringLiteral("second")));
        query.add({QStringLiteral("m")}, QStringLiteral("first"), send(query.connection(), QStringLiteral("first")));
        query.add({QStringLiteral("m")}, QStringLiteral("second"), send(query.connection(), QStringLiteral("second")),
                  BusQuery::defaultTimeoutMs, true);
        QVERIFY2(query.run(), qPrintable(query.errorText()));
        const QVariantMap expected{
            {QStringLiteral("a"),
             QVariantMap{{QStringLiteral("b"), QVariantMap{{QStringLiteral("one"), 1u}}},
                         {QStringLiteral("c"), QVariantMap{{QStringLiteral("two"), QStringLiteral("2")}}}}},
            {QStringLiteral("m"), QVariantMap{{QStringLiteral("one"), 1u}, {QStringLiteral("two"), QStringLiteral("2")}}},
        };
        QCOMPARE(query.document(), expected);
    }

    void silentDaemonTimesOut()
    {
        BusQuery query(QDBusConnection::systemBus());
        query.add({QStringLiteral("x")}, QStringLiteral("never"),
                  send(query.connection(), QStringLiteral("never"), 300), 300);
        QVERIFY(!query.run());
        QCOMPARE(query.errorText(), QStringLiteral("never: plinthd gave no answer within 0 s"));
    }

    void unknownMethodIsNamed()
    {
        BusQuery query(QDBusConnection::systemBus());
        query.add({QStringLiteral("x")}, QStringLiteral("nothingLikeThis"),
                  send(query.connection(), QStringLiteral("nothingLikeThis")));
        QVERIFY(!query.run());
        QVERIFY2(query.errorText().startsWith(QStringLiteral("nothingLikeThis: this plinthd does not offer it")),
                 qPrintable(query.errorText()));
    }

    void deadBusIsReported()
    {
        const QDBusConnection dead =
            QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/socket"), QStringLiteral("dead"));
        BusQuery query(dead);
        query.add({QStringLiteral("x")}, QStringLiteral("first"), send(query.connection(), QStringLiteral("first")));
        QVERIFY(!query.run());
        QVERIFY2(query.errorText().startsWith(QStringLiteral("cannot reach the system bus: ")),
                 qPrintable(query.errorText()));
        QDBusConnection::disconnectFromBus(QStringLiteral("dead"));
    }

    // Last: gives the name back.
    void nobodyOwningTheNameIsReported()
    {
        QVERIFY(server.unregisterService(busName));
        BusQuery query(QDBusConnection::systemBus());
        query.add({QStringLiteral("x")}, QStringLiteral("first"), send(query.connection(), QStringLiteral("first")));
        QVERIFY(!query.run());
        QCOMPARE(query.errorText(),
                 QStringLiteral("plinthd is not running: nobody owns org.norvu.plinth on the system bus"));
    }
};

QTEST_GUILESS_MAIN(TestPlinthCtlBus)
#include "tst_plinthctlbus.moc"
