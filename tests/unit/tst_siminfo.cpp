// SPDX-License-Identifier: BSD-3-Clause
#include "siminfo.h"

#include <QTest>

// The rules that make one card, and its map on the bus, on their own.
class TestSimInfo : public QObject
{
    Q_OBJECT

private slots:
    void simName_data()
    {
        QTest::addColumn<QString>("modemPath");
        QTest::addColumn<QString>("expected");
        QTest::newRow("first modem") << QStringLiteral("/ril_0") << QStringLiteral("SIM1");
        QTest::newRow("second modem") << QStringLiteral("/ril_1") << QStringLiteral("SIM2");
        QTest::newRow("two digits") << QStringLiteral("/ril_10") << QStringLiteral("SIM11");
        QTest::newRow("first run only") << QStringLiteral("/hw3/modem_7") << QStringLiteral("SIM4");
        QTest::newRow("leading zeros") << QStringLiteral("/modem007") << QStringLiteral("SIM8");
        QTest::newRow("no digits") << QStringLiteral("/modem") << QString();
        QTest::newRow("empty") << QString() << QString();
        // toInt gives 0 for a run too long for an int.
        QTest::newRow("overflow") << QStringLiteral("/ril_99999999999") << QStringLiteral("SIM1");
    }

    void simName()
    {
        QFETCH(QString, modemPath);
        QFETCH(QString, expected);
        QCOMPARE(SimInfo::simName(modemPath), expected);
    }

    void preferredData_data()
    {
        QTest::addColumn<QString>("identity");
        QTest::addColumn<QString>("defaultDataSim");
        QTest::addColumn<bool>("multipleModems");
        QTest::addColumn<bool>("expected");
        QTest::newRow("one modem, other SIM") << "1" << "2" << false << true;
        QTest::newRow("one modem, no default") << "1" << "" << false << true;
        QTest::newRow("modems, the default") << "1" << "1" << true << true;
        QTest::newRow("modems, other SIM") << "1" << "2" << true << false;
        QTest::newRow("modems, no identity, no default") << "" << "" << true << true;
    }

    void preferredData()
    {
        QFETCH(QString, identity);
        QFETCH(QString, defaultDataSim);
        QFETCH(bool, multipleModems);
        QFETCH(bool, expected);
        QCOMPARE(SimInfo::isPreferredDataSim(identity, defaultDataSim, multipleModems), expected);
    }

    // Unlike data, voice also needs more than one present card.
    void preferredVoice_data()
    {
        QTest::addColumn<QString>("identity");
        QTest::addColumn<QString>("defaultVoiceSim");
        QTest::addColumn<bool>("multipleModems");
        QTest::addColumn<int>("presentSimCount");
        QTest::addColumn<bool>("expected");
        QTest::newRow("one modem, two cards") << "1" << "2" << false << 2 << true;
        QTest::newRow("modems, one card") << "1" << "2" << true << 1 << true;
        QTest::newRow("modems, one card, no default") << "1" << "" << true << 1 << true;
        QTest::newRow("modems, two cards, the default") << "1" << "1" << true << 2 << true;
        QTest::newRow("modems, two cards, other SIM") << "1" << "2" << true << 2 << false;
        QTest::newRow("modems, two cards, no default") << "1" << "" << true << 2 << false;
    }

    void preferredVoice()
    {
        QFETCH(QString, identity);
        QFETCH(QString, defaultVoiceSim);
        QFETCH(bool, multipleModems);
        QFETCH(int, presentSimCount);
        QFETCH(bool, expected);
        QCOMPARE(SimInfo::isPreferredVoiceSim(identity, defaultVoiceSim, multipleModems, presentSimCount),
                 expected);
    }

    void cardMap()
    {
        const QVariantMap card = SimCard{true, QStringLiteral("Fake Tel"), false, true,
                                         QStringLiteral("SIM2")}.toVariantMap();
        QCOMPARE(card.keys(), QStringList({QStringLiteral("enabled"), QStringLiteral("operatorName"),
                                           QStringLiteral("preferredDataTransfer"),
                                           QStringLiteral("preferredVoiceCall"), QStringLiteral("simName")}));
        QCOMPARE(card.value(QStringLiteral("enabled")), QVariant(true));
        QCOMPARE(card.value(QStringLiteral("operatorName")), QVariant(QStringLiteral("Fake Tel")));
        QCOMPARE(card.value(QStringLiteral("preferredDataTransfer")), QVariant(false));
        QCOMPARE(card.value(QStringLiteral("preferredVoiceCall")), QVariant(true));
        QCOMPARE(card.value(QStringLiteral("simName")), QVariant(QStringLiteral("SIM2")));
        for (const QString &key : {QStringLiteral("enabled"), QStringLiteral("preferredDataTransfer"),
                                   QStringLiteral("preferredVoiceCall")})
            QCOMPARE(card.value(key).userType(), int(QMetaType::Bool));
        for (const QString &key : {QStringLiteral("operatorName"), QStringLiteral("simName")})
            QCOMPARE(card.value(key).userType(), int(QMetaType::QString));

        // Empty texts are kept, not dropped.
        const QVariantMap bare = SimCard{false, QString(), true, true, QString()}.toVariantMap();
        QCOMPARE(bare.size(), 5);
        QCOMPARE(bare.value(QStringLiteral("simName")).userType(), int(QMetaType::QString));

        const QVariantMapList list = SimCard::toVariantMapList({SimCard{}, SimCard{true, {}, true, true, {}}});
        QCOMPARE(list.size(), 2);
        QCOMPARE(list.at(0).value(QStringLiteral("enabled")), QVariant(false));
        QCOMPARE(list.at(1).value(QStringLiteral("enabled")), QVariant(true));
    }

    void usageMode_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<int>("expected");
        QTest::newRow("unset") << QVariant() << int(SimInfo::DefaultVoiceSimOnEveryNotice);
        QTest::newRow("0") << QVariant(0) << 0;
        QTest::newRow("1") << QVariant(1) << 1;
        QTest::newRow("2") << QVariant(2) << 2;
        QTest::newRow("5") << QVariant(5) << 5;
        QTest::newRow("int64") << QVariant(qlonglong(1)) << 1;
        QTest::newRow("unsigned") << QVariant(uint(3)) << 3;
        QTest::newRow("numeric text") << QVariant(QStringLiteral("1")) << 1;
        // A text converts to int, so it is read as a number: 0 when it is none.
        QTest::newRow("text") << QVariant(QStringLiteral("dual")) << 0;
        QTest::newRow("list") << QVariant(QStringList{QStringLiteral("1")}) << 2;
    }

    void usageMode()
    {
        QFETCH(QVariant, value);
        QFETCH(int, expected);
        QCOMPARE(SimInfo::usageModeFromValue(value), expected);
    }
};

QTEST_GUILESS_MAIN(TestSimInfo)

#include "tst_siminfo.moc"
