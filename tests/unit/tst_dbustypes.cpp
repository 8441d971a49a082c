// SPDX-License-Identifier: BSD-3-Clause
// Marshalling of the structured answers, checked on a real bus round trip
// (PRIVATE_BUS in CMakeLists).
#include "dbustypes.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QtTest>

// Answers with whatever the test put in `reply`, so the value crosses the bus.
class Echo : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.test.Echo")

public:
    QVariant reply;

public slots:
    QDBusVariant value() { return QDBusVariant(reply); }
};

class TestDBusTypes : public QObject
{
    Q_OBJECT

    Echo echo;

    QDBusMessage roundTrip(const QVariant &value)
    {
        echo.reply = value;
        QDBusMessage call = QDBusMessage::createMethodCall(QDBusConnection::systemBus().baseService(), "/echo",
                                                           "org.norvu.plinth.test.Echo", "value");
        return QDBusConnection::systemBus().call(call);
    }

private slots:
    void initTestCase()
    {
        PlinthTypes::registerQuotaInfoMap();
        PlinthTypes::registerVariantMapList();
        PlinthTypes::registerVariantMap();
        QVERIFY(QDBusConnection::systemBus().isConnected());
        QVERIFY(QDBusConnection::systemBus().registerObject("/echo", &echo, QDBusConnection::ExportAllSlots));
    }

    void namesAreRegistered()
    {
        QCOMPARE(QMetaType::type("QVariantMapList"), qMetaTypeId<QVariantMapList>());
        QCOMPARE(QMetaType::type("QuotaInfoMap"), qMetaTypeId<QuotaInfoMap>());
        QCOMPARE(QDBusMetaType::typeToSignature(qMetaTypeId<QVariantMapList>()), "aa{sv}");
        QCOMPARE(QDBusMetaType::typeToSignature(qMetaTypeId<QuotaInfoMap>()), "a{sa{sv}}");
        QCOMPARE(QDBusMetaType::typeToSignature(QMetaType::QVariantMap), "a{sv}");
    }

    void emptyListIsAnEmptyArray()
    {
        const QDBusMessage reply = roundTrip(QVariant::fromValue(QVariantMapList()));
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
        const QDBusArgument arg = reply.arguments().at(0).value<QDBusVariant>().variant().value<QDBusArgument>();
        QCOMPARE(arg.currentSignature(), QStringLiteral("aa{sv}"));
        QVariantMapList list;
        list.append(QVariantMap{{"stale", 1}});
        arg >> list; // clears first
        QVERIFY(list.isEmpty());
    }

    void emptyInnerMapIsAnEmptyDictionary()
    {
        const QDBusMessage reply = roundTrip(QVariant::fromValue(QVariantMapList{QVariantMap()}));
        const QDBusArgument arg = reply.arguments().at(0).value<QDBusVariant>().variant().value<QDBusArgument>();
        QCOMPARE(arg.currentSignature(), QStringLiteral("aa{sv}"));
        QVariantMapList list;
        arg >> list;
        QCOMPARE(list.size(), 1);
        QVERIFY(list.first().isEmpty());
    }

    void quotaMapKeepsItsShape()
    {
        QuotaInfoMap quota;
        quota.insert("100000", QVariantMap{{"quotaIsSet", false}, {"quotaLimit", qulonglong(42)}});
        quota.insert("100001", QVariantMap());
        const QDBusMessage reply = roundTrip(QVariant::fromValue(quota));
        const QDBusArgument arg = reply.arguments().at(0).value<QDBusVariant>().variant().value<QDBusArgument>();
        QCOMPARE(arg.currentSignature(), QStringLiteral("a{sa{sv}}"));
        QuotaInfoMap back;
        arg >> back;
        QCOMPARE(back.keys(), QStringList({"100000", "100001"}));
        QCOMPARE(back.value("100000").value("quotaLimit").toULongLong(), 42ULL);
        QCOMPARE(back.value("100000").value("quotaLimit").userType(), int(QMetaType::ULongLong));
        QVERIFY(back.value("100001").isEmpty());
    }

    void nestedValuesStayDBusArguments()
    {
        QVariantMap drive{{"model", "Card"}, {"connectionBus", 0}};
        QVariantMapList list{QVariantMap{{"drive", drive}, {"deviceName", "mmcblk1p1"}}};
        const QDBusMessage reply = roundTrip(QVariant::fromValue(list));
        const QDBusArgument arg = reply.arguments().at(0).value<QDBusVariant>().variant().value<QDBusArgument>();
        QVariantMapList back;
        arg >> back;
        QCOMPARE(back.size(), 1);
        QCOMPARE(back.first().value("deviceName").toString(), QStringLiteral("mmcblk1p1"));
        const QVariant nested = back.first().value("drive");
        QCOMPARE(nested.userType(), qMetaTypeId<QDBusArgument>());
        QCOMPARE(nested.value<QDBusArgument>().currentSignature(), QStringLiteral("a{sv}"));
    }
};

QTEST_GUILESS_MAIN(TestDBusTypes)
#include "tst_dbustypes.moc"
