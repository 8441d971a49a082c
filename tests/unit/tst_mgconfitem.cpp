// SPDX-License-Identifier: BSD-3-Clause
#include "privatedconf.h"

#include <mgconfitem.h>

#include <QCoreApplication>
#include <QSignalSpy>
#include <QStringList>
#include <QTest>

#include <memory>

// Against the real settings store: a dconf database of the test's own,
// compiled by "dconf update" and announced on the private system bus.
class TestMGConfItem : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (!PrivateDconf::isReady())
            QSKIP("needs root and /etc/dconf for a private dconf database");
    }

    void init()
    {
        QVERIFY(PrivateDconf::write(QByteArray()));
    }

    void unsetKeyIsInvalid()
    {
        MGConfItem item(QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
        QVERIFY(!item.value().isValid());
    }

    void valueIsReadAtConstruction()
    {
        QVERIFY(PrivateDconf::write("[veska/ofono]\nvoice_sim_usage_mode=1\n"));
        MGConfItem item(QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
        QCOMPARE(item.value(), QVariant(1));
    }

    void conversion_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QVariant>("expected");
        QTest::newRow("boolean") << QByteArray("true") << QVariant(true);
        QTest::newRow("int16") << QByteArray("int16 -3") << QVariant(int(-3));
        QTest::newRow("int32") << QByteArray("42") << QVariant(int(42));
        QTest::newRow("byte") << QByteArray("byte 7") << QVariant(uint(7));
        QTest::newRow("uint16") << QByteArray("uint16 9") << QVariant(uint(9));
        QTest::newRow("uint32") << QByteArray("uint32 4000000000") << QVariant(uint(4000000000u));
        QTest::newRow("int64") << QByteArray("int64 -5000000000") << QVariant(qlonglong(-5000000000LL));
        QTest::newRow("uint64") << QByteArray("uint64 18000000000000000000")
                                << QVariant(qulonglong(18000000000000000000ULL));
        QTest::newRow("double") << QByteArray("2.5") << QVariant(2.5);
        QTest::newRow("string") << QByteArray("'310150000000001'") << QVariant(QStringLiteral("310150000000001"));
        QTest::newRow("object path") << QByteArray("objectpath '/ril_0'") << QVariant(QStringLiteral("/ril_0"));
        QTest::newRow("string array") << QByteArray("['a', 'b']")
                                      << QVariant(QStringList{QStringLiteral("a"), QStringLiteral("b")});
        QTest::newRow("empty string array") << QByteArray("@as []") << QVariant(QStringList());
        QTest::newRow("tuple") << QByteArray("(1, 2)") << QVariant();
        QTest::newRow("dictionary") << QByteArray("{'a': 1}") << QVariant();
        QTest::newRow("maybe") << QByteArray("@mi nothing") << QVariant();
    }

    void conversion()
    {
        QFETCH(QByteArray, text);
        QFETCH(QVariant, expected);
        QVERIFY(PrivateDconf::write("[test]\nkey=" + text + "\n"));
        MGConfItem item(QStringLiteral("/test/key"));
        QCOMPARE(item.value().userType(), expected.userType());
        QCOMPARE(item.value(), expected);
    }

    void changeIsNotified()
    {
        MGConfItem item(QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
        QSignalSpy spy(&item, &MGConfItem::valueChanged);
        QVERIFY(PrivateDconf::write("[veska/ofono]\nvoice_sim_usage_mode=1\n"));
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(item.value(), QVariant(1));

        // Removal is a change too.
        QVERIFY(PrivateDconf::write(QByteArray()));
        QTRY_COMPARE(spy.count(), 2);
        QVERIFY(!item.value().isValid());
    }

    // dconf announces the whole database; keys that kept their value stay
    // quiet, a new type for the same number does not.
    void onlyRealChangesAreNotified()
    {
        QVERIFY(PrivateDconf::write("[veska/ofono]\nvoice_sim_usage_mode=1\n"));
        MGConfItem item(QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
        MGConfItem witness(QStringLiteral("/veska/ofono/default_voice_sim"));
        QSignalSpy spy(&item, &MGConfItem::valueChanged);
        QSignalSpy witnessSpy(&witness, &MGConfItem::valueChanged);

        QVERIFY(PrivateDconf::write("[veska/ofono]\nvoice_sim_usage_mode=1\ndefault_voice_sim='1'\n"));
        QTRY_COMPARE(witnessSpy.count(), 1);
        QTest::qWait(100);
        QCOMPARE(spy.count(), 0);

        QVERIFY(PrivateDconf::write("[veska/ofono]\nvoice_sim_usage_mode=int64 1\ndefault_voice_sim='1'\n"));
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(item.value().userType(), int(QMetaType::LongLong));
        QCOMPARE(witnessSpy.count(), 1);
    }

    void itemsOfOneKeyAreNotifiedAlike()
    {
        MGConfItem first(QStringLiteral("/veska/ofono/default_voice_sim"));
        MGConfItem second(QStringLiteral("/veska/ofono/default_voice_sim"));
        QSignalSpy firstSpy(&first, &MGConfItem::valueChanged);
        QSignalSpy secondSpy(&second, &MGConfItem::valueChanged);
        QVERIFY(PrivateDconf::write("[veska/ofono]\ndefault_voice_sim='310150000000000'\n"));
        QTRY_COMPARE(firstSpy.count(), 1);
        QTRY_COMPARE(secondSpy.count(), 1);
        QCOMPARE(second.value(), QVariant(QStringLiteral("310150000000000")));
    }

    void invalidKeys_data()
    {
        QTest::addColumn<QString>("key");
        QTest::newRow("relative") << QStringLiteral("veska/ofono/voice_sim_usage_mode");
        QTest::newRow("double slash") << QStringLiteral("/veska//voice_sim_usage_mode");
        QTest::newRow("directory") << QStringLiteral("/veska/ofono/");
        QTest::newRow("empty") << QString();
    }

    void invalidKeys()
    {
        QFETCH(QString, key);
        MGConfItem item(key);
        QSignalSpy spy(&item, &MGConfItem::valueChanged);
        QVERIFY(PrivateDconf::write("[veska/ofono]\nvoice_sim_usage_mode=1\n"));
        QTest::qWait(100);
        QVERIFY(!item.value().isValid());
        QCOMPARE(spy.count(), 0);
    }

    // A notification on its way to an item that is gone must not reach it.
    void itemDeletedWithNotificationPending()
    {
        MGConfItem witness(QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
        QSignalSpy witnessSpy(&witness, &MGConfItem::valueChanged);
        auto item = std::make_unique<MGConfItem>(QStringLiteral("/veska/ofono/voice_sim_usage_mode"));
        QVERIFY(PrivateDconf::write("[veska/ofono]\nvoice_sim_usage_mode=3\n"));
        item.reset();
        QTRY_COMPARE(witnessSpy.count(), 1);
        QCOMPARE(witness.value(), QVariant(3));
    }
};

int main(int argc, char *argv[])
{
    PrivateDconf::enter();
    QCoreApplication app(argc, argv);
    TestMGConfItem test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_mgconfitem.moc"
