// SPDX-License-Identifier: BSD-3-Clause
// The client's formatting units: sizes, JSON, labels, the text layout, the
// command line, the interface descriptions and the monitor's entries.
#include "busquery.h"
#include "commandline.h"
#include "fields.h"
#include "interfacedescription.h"
#include "jsonwriter.h"
#include "reports.h"
#include "signalmonitor.h"
#include "sizeformat.h"
#include "textreport.h"

#include <QDBusMessage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <limits>

using namespace PlinthCtl;

class TestPlinthCtlFormat : public QObject
{
    Q_OBJECT

private slots:
    void humanSizes_data()
    {
        QTest::addColumn<quint64>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << quint64(0) << "0 B";
        QTest::newRow("below a KiB") << quint64(1023) << "1023 B";
        QTest::newRow("one KiB") << quint64(1024) << "1.0 KiB";
        QTest::newRow("one and a half KiB") << quint64(1536) << "1.5 KiB";
        QTest::newRow("rounds up into the next unit") << quint64(1024 * 1024 - 1) << "1.0 MiB";
        QTest::newRow("GiB") << quint64(31) * 1024 * 1024 * 1024 / 2 << "15.5 GiB";
        QTest::newRow("TiB") << quint64(3) * 1024 * 1024 * 1024 * 1024 << "3.0 TiB";
        QTest::newRow("largest") << std::numeric_limits<quint64>::max() << "16.0 EiB";
    }

    void humanSizes()
    {
        QFETCH(quint64, bytes);
        QFETCH(QString, text);
        QCOMPARE(humanSize(bytes), text);
    }

    void signedSizesKeepTheirSign()
    {
        QCOMPARE(humanSize(qint64(0)), QStringLiteral("0 B"));
        QCOMPARE(humanSize(qint64(-2048)), QStringLiteral("-2.0 KiB"));
        QCOMPARE(humanSize(std::numeric_limits<qint64>::min()), QStringLiteral("-8.0 EiB"));
    }

    void sizesIgnoreTheLocale()
    {
        const QLocale saved;
        QLocale::setDefault(QLocale(QLocale::German));
        const QString text = humanSize(quint64(1536));
        QLocale::setDefault(saved);
        QCOMPARE(text, QStringLiteral("1.5 KiB"));
    }

    void jsonKeepsEveryIntegerExact()
    {
        const QVariantMap map{
            {QStringLiteral("t"), QVariant::fromValue(std::numeric_limits<quint64>::max())},
            {QStringLiteral("x"), QVariant::fromValue(std::numeric_limits<qint64>::min())},
            {QStringLiteral("u"), QVariant::fromValue(4000000000u)},
            {QStringLiteral("big"), QVariant::fromValue(quint64(9007199254740993ULL))},
        };
        QCOMPARE(JsonWriter::write(map, JsonWriter::Compact),
                 QByteArray("{\"big\":9007199254740993,\"t\":18446744073709551615,"
                            "\"u\":4000000000,\"x\":-9223372036854775808}"));
    }

    void jsonScalarsAndContainers()
    {
        const QVariantMap map{
            {QStringLiteral("b"), true},
            {QStringLiteral("d"), 12.5},
            {QStringLiteral("nan"), std::numeric_limits<double>::quiet_NaN()},
            {QStringLiteral("s"), QStringLiteral("quote \" back \\ nl \n tab \t bell \x07 é")},
            {QStringLiteral("l"), QVariantList{1, QStringLiteral("a")}},
            {QStringLiteral("e"), QVariantList()},
            {QStringLiteral("m"), QVariantMap()},
            {QStringLiteral("n"), QVariant()},
        };
        const QByteArray json = JsonWriter::write(map, JsonWriter::Compact);
        QCOMPARE(json, QByteArray("{\"b\":true,\"d\":12.5,\"e\":[],\"l\":[1,\"a\"],\"m\":{},\"n\":null,\"nan\":null,"
                                  "\"s\":\"quote \\\" back \\\\ nl \\n tab \\t bell \\u0007 \xc3\xa9\"}"));
        // An independent parser agrees, in both layouts.
        for (const auto format : {JsonWriter::Compact, JsonWriter::Indented}) {
            QJsonParseError error;
            const QJsonDocument document = QJsonDocument::fromJson(JsonWriter::write(map, format), &error);
            QCOMPARE(error.error, QJsonParseError::NoError);
            QCOMPARE(document.object().value(QStringLiteral("s")).toString(), map.value(QStringLiteral("s")).toString());
        }
    }

    void jsonIndentedLayout()
    {
        const QVariantMap map{{QStringLiteral("a"), QVariantList{1}}, {QStringLiteral("b"), QVariantMap()}};
        QCOMPARE(JsonWriter::write(map), QByteArray("{\n  \"a\": [\n    1\n  ],\n  \"b\": {}\n}\n"));
    }

    void wordsFromNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("words");
        QTest::newRow("camel") << "cpuModel" << "Cpu model";
        QTest::newRow("acronym at the end") << "bytesUsedSDK" << "Bytes used SDK";
        QTest::newRow("acronym in the middle") << "hasGNSSFix" << "Has GNSS fix";
        QTest::newRow("one word") << "enabled" << "Enabled";
        QTest::newRow("digits") << "100000" << "100000";
        QTest::newRow("empty") << "" << "";
    }

    void wordsFromNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, words);
        QCOMPARE(Fields::wordsFromName(name), words);
    }

    void labels()
    {
        QCOMPARE(Fields::label(QStringLiteral("ramTotal")), QStringLiteral("Memory total"));
        QCOMPARE(Fields::label(QStringLiteral("bytesUsedOtherUsers")), QStringLiteral("Used by other users"));
        // Categories the client has never heard of still read well.
        QCOMPARE(Fields::label(QStringLiteral("bytesUsedGameSaves")), QStringLiteral("Used by game saves"));
        QCOMPARE(Fields::label(QStringLiteral("bytesUsedXYZ")), QStringLiteral("Used by XYZ"));
        QCOMPARE(Fields::label(QStringLiteral("brandNewThing")), QStringLiteral("Brand new thing"));
    }

    void scalarTexts_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("true") << "hasNfc" << QVariant(true) << "yes";
        QTest::newRow("false") << "hasNfc" << QVariant(false) << "no";
        QTest::newRow("empty string") << "cpuModel" << QVariant(QString()) << "n/a";
        QTest::newRow("string") << "cpuModel" << QVariant(QStringLiteral("ARMv8")) << "ARMv8";
        QTest::newRow("missing") << "cpuModel" << QVariant() << "n/a";
        QTest::newRow("ram") << "ramTotal" << QVariant::fromValue(quint64(4) << 30) << "4.0 GiB";
        QTest::newRow("signed size") << "bytesUsedOtherUsers" << QVariant::fromValue(qint64(0)) << "0 B";
        QTest::newRow("unknown bytes key") << "bytesUsedNew" << QVariant::fromValue(quint64(2048)) << "2.0 KiB";
        QTest::newRow("quota limit") << "quotaLimit" << QVariant::fromValue(quint64(1024)) << "1.0 KiB";
        QTest::newRow("clock") << "maxClockSpeed" << QVariant(1804u) << "1804 MHz";
        QTest::newRow("battery") << "batteryPercentage" << QVariant(87u) << "87 %";
        QTest::newRow("camera") << "mainCamRes" << QVariant(12.2) << "12.2 MP";
        QTest::newRow("plain count") << "numCores" << QVariant(8u) << "8";
        QTest::newRow("plain double") << "something" << QVariant(0.25) << "0.25";
        // The daemon's neutral answers for "not known" are not shown as facts.
        QTest::newRow("no battery") << "batteryPercentage" << QVariant(0u) << "not known";
        QTest::newRow("no clock") << "maxClockSpeed" << QVariant(0u) << "not known";
        QTest::newRow("core clock too small") << "maxCoresClockSpeed" << QVariant(99u) << "not known";
        QTest::newRow("core clock") << "maxCoresClockSpeed" << QVariant(100u) << "100 MHz";
        QTest::newRow("no camera") << "mainCamRes" << QVariant(0.0) << "not known";
        QTest::newRow("no front camera") << "frontalCamRes" << QVariant(0.0) << "not known";
        QTest::newRow("no cores") << "numCores" << QVariant(0u) << "not known";
        QTest::newRow("no memory figure") << "ramTotal" << QVariant::fromValue(quint64(0)) << "not known";
        QTest::newRow("free space 0 is a fact") << "bytesAvailable" << QVariant::fromValue(quint64(0)) << "0 B";
        QTest::newRow("wrapped around") << "bytesUsedOther" << QVariant::fromValue(quint64(0) - 4096)
                                        << "0 B (the parts counted add up to more than the used space)";
        QTest::newRow("largest unwrapped")
            << "bytesUsedOther" << QVariant::fromValue(quint64(std::numeric_limits<qint64>::max())) << "8.0 EiB";
        QTest::newRow("total is no difference") << "bytesTotal" << QVariant::fromValue(quint64(0) - 1) << "16.0 EiB";
        QTest::newRow("leading blank") << "deviceLabel" << QVariant(QStringLiteral(" partition")) << "partition";
    }

    void scalarTexts()
    {
        QFETCH(QString, name);
        QFETCH(QVariant, value);
        QFETCH(QString, text);
        QCOMPARE(Fields::scalarText(name, value), text);
    }

    void knownNamesComeFirstInTheirOrder()
    {
        const QStringList order = Fields::displayOrder(
            {QStringLiteral("zzz"), QStringLiteral("bytesAvailable"), QStringLiteral("aaa"),
             QStringLiteral("bytesTotal"), QStringLiteral("deviceLabel")});
        QCOMPARE(order, (QStringList{QStringLiteral("deviceLabel"), QStringLiteral("bytesTotal"),
                                     QStringLiteral("bytesAvailable"), QStringLiteral("zzz"), QStringLiteral("aaa")}));
    }

    void textReportAlignsValuesPerSection()
    {
        TextReport report;
        report.addSection(QStringLiteral("First"));
        report.addRow(QStringLiteral("A"), QStringLiteral("1"));
        report.addRow(QStringLiteral("Longer label"), QStringLiteral("2"));
        report.addSection(QStringLiteral("Second"));
        report.addValue(QStringLiteral("locales"), QVariantList{QStringLiteral("de_DE"), QStringLiteral("en_GB")});
        report.addValue(QStringLiteral("fontNames"), QVariantList());
        report.addValue(QStringLiteral("outer"), QVariantMap{{QStringLiteral("bytesTotal"), quint64(1024)}});
        report.addValue(QStringLiteral("empty"), QVariantMap());
        QCOMPARE(report.render(), QStringLiteral("First\n"
                                                 "  A:            1\n"
                                                 "  Longer label: 2\n"
                                                 "\n"
                                                 "Second\n"
                                                 "  Installed locales: de_DE\n"
                                                 "                     en_GB\n"
                                                 "  Font files:        none\n"
                                                 "  Outer:\n"
                                                 "    Total:           1.0 KiB\n"
                                                 "  Empty:\n"
                                                 "    (no data)\n"));
    }

    void listItemsAreNamedByTheirOwnName()
    {
        QCOMPARE(TextReport::itemTitle({{QStringLiteral("simName"), QStringLiteral("SIM2")}}, QStringLiteral("SIM"), 0),
                 QStringLiteral("SIM2"));
        QCOMPARE(TextReport::itemTitle({{QStringLiteral("simName"), QString()}}, QStringLiteral("SIM"), 1),
                 QStringLiteral("SIM 2"));
        QCOMPARE(TextReport::itemTitle({{QStringLiteral("mountPoint"), QStringLiteral("/media/sd")}},
                                       QStringLiteral("Partition"), 0),
                 QStringLiteral("/media/sd"));
    }

    void overviewGroupsAndCountsFonts()
    {
        const QVariantMap document{
            {QStringLiteral("features"),
             QVariantMap{{QStringLiteral("cpuModel"), QStringLiteral("ARMv8")},
                         {QStringLiteral("osVersion"), QStringLiteral("5.1")},
                         {QStringLiteral("timeZone"), QStringLiteral("CET")},
                         {QStringLiteral("fontNames"), QVariantList{QStringLiteral("a.ttf"), QStringLiteral("b.ttf")}},
                         {QStringLiteral("newFeature"), 7u}}},
            {QStringLiteral("sims"),
             QVariantList{QVariantMap{{QStringLiteral("simName"), QStringLiteral("SIM1")},
                                      {QStringLiteral("enabled"), true},
                                      {QStringLiteral("operatorName"), QStringLiteral("Tele")}}}},
            {QStringLiteral("storage"),
             QVariantMap{{QStringLiteral("drives"), QVariantList()},
                         {QStringLiteral("quota"),
                          QVariantMap{{QStringLiteral("100000"),
                                       QVariantMap{{QStringLiteral("quotaIsSet"), false}}}}}}},
        };
        QCOMPARE(Reports::overviewText(document), QStringLiteral("Device\n"
                                                                 "  CPU model: ARMv8\n"
                                                                 "\n"
                                                                 "Operating system\n"
                                                                 "  OS version: 5.1\n"
                                                                 "\n"
                                                                 "Locale\n"
                                                                 "  Time zone: CET\n"
                                                                 "\n"
                                                                 "Fonts\n"
                                                                 "  Font files: 2\n"
                                                                 "\n"
                                                                 "Other\n"
                                                                 "  New feature: 7\n"
                                                                 "\n"
                                                                 "SIM cards\n"
                                                                 "  SIM1:\n"
                                                                 "    Name:     SIM1\n"
                                                                 "    Operator: Tele\n"
                                                                 "    Present:  yes\n"
                                                                 "\n"
                                                                 "External drives\n"
                                                                 "  none\n"
                                                                 "\n"
                                                                 "User quotas\n"
                                                                 "  uid 100000:\n"
                                                                 "    Quota set: no\n"));
        // The full form lists the fonts themselves.
        QVERIFY(Reports::featuresText(document).contains(QStringLiteral("  Font files: a.ttf\n              b.ttf\n")));
    }

    void partitionsAreTitledByTheirOwnName()
    {
        const QVariantMap drive{{QStringLiteral("driveName"), QStringLiteral("Acme Card")},
                                {QStringLiteral("partitionsInfo"),
                                 QVariantList{QVariantMap{{QStringLiteral("driveName"), QStringLiteral("Acme Card")},
                                                          {QStringLiteral("partitionName"), QStringLiteral("PHOTOS")},
                                                          {QStringLiteral("mountPoint"), QStringLiteral("/media/a")}},
                                              QVariantMap{{QStringLiteral("driveName"), QStringLiteral("Acme Card")},
                                                          {QStringLiteral("partitionName"), QString()},
                                                          {QStringLiteral("partitionLabel"), QStringLiteral("EFI")},
                                                          {QStringLiteral("mountPoint"), QString()}},
                                              QVariantMap{{QStringLiteral("driveName"), QStringLiteral("Acme Card")},
                                                          {QStringLiteral("partitionName"), QString()},
                                                          {QStringLiteral("mountPoint"), QString()}}}}};
        TextReport report;
        report.addValue(QStringLiteral("externalDriveInfo"), drive);
        const QString text = report.render();
        QVERIFY2(text.contains(QStringLiteral("\n    PHOTOS:\n")), qPrintable(text));
        QVERIFY2(text.contains(QStringLiteral("\n    EFI:\n")), qPrintable(text));
        QVERIFY2(text.contains(QStringLiteral("\n    Partition 3:\n")), qPrintable(text));
        QCOMPARE(text.count(QStringLiteral("Acme Card:")), 0);
    }

    void unmountedPartitionsSayNotMounted()
    {
        const QVariantMap partition{{QStringLiteral("partitionName"), QStringLiteral("CARD")},
                                    {QStringLiteral("mountPoint"), QString()},
                                    {QStringLiteral("bytesTotal"), qint64(2048)},
                                    {QStringLiteral("bytesUsed"), qint64(2048)},
                                    {QStringLiteral("bytesAvailable"), qint64(0)}};
        TextReport report;
        report.addMapList({partition}, QStringLiteral("Partition"));
        QCOMPARE(report.render(), QStringLiteral("CARD:\n"
                                                 "  Name:        CARD\n"
                                                 "  Mount point: not mounted\n"
                                                 "  Total:       2.0 KiB\n"
                                                 "  Used:        not mounted\n"
                                                 "  Available:   not mounted\n"));
    }

    void drivesShowTheirPartitions()
    {
        const QVariantMap partition{{QStringLiteral("partitionName"), QStringLiteral("CARD")},
                                    {QStringLiteral("bytesTotal"), qint64(2048)}};
        const QVariantMap drive{{QStringLiteral("driveName"), QStringLiteral("Acme Card")},
                                {QStringLiteral("driveType"), QStringLiteral("SD")},
                                {QStringLiteral("partitionsInfo"), QVariantList{partition}}};
        const QVariantMap document{
            {QStringLiteral("storage"), QVariantMap{{QStringLiteral("drives"), QVariantList{drive}}}}};
        QCOMPARE(Reports::storageText(document), QStringLiteral("External drives\n"
                                                                "  Acme Card:\n"
                                                                "    Drive:      Acme Card\n"
                                                                "    Connection: SD\n"
                                                                "    Partitions:\n"
                                                                "      CARD:\n"
                                                                "        Name:   CARD\n"
                                                                "        Total:  2.0 KiB\n"));
        QCOMPARE(Reports::simsText({}), QStringLiteral("SIM cards\n  none\n"));
    }

    void commandLines_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("command");
        QTest::addColumn<QStringList>("parts");
        QTest::addColumn<bool>("json");
        QTest::addColumn<bool>("error");
        const QStringList all = Reports::storageParts();
        QTest::newRow("nothing") << QStringList() << int(CommandLine::Overview) << QStringList() << false << false;
        QTest::newRow("status json") << QStringList{"status", "--json"} << int(CommandLine::Overview) << QStringList()
                                     << true << false;
        QTest::newRow("json first") << QStringList{"--json", "sims"} << int(CommandLine::Sims) << QStringList() << true
                                    << false;
        QTest::newRow("features") << QStringList{"features"} << int(CommandLine::Features) << QStringList() << false
                                  << false;
        QTest::newRow("storage") << QStringList{"storage"} << int(CommandLine::Storage) << all << false << false;
        QTest::newRow("storage parts") << QStringList{"storage", "quota", "user", "quota"}
                                       << int(CommandLine::Storage) << QStringList{"quota", "user"} << false << false;
        QTest::newRow("bad part") << QStringList{"storage", "attic"} << int(CommandLine::Storage) << QStringList()
                                  << false << true;
        QTest::newRow("monitor") << QStringList{"monitor", "--json"} << int(CommandLine::Monitor) << QStringList()
                                 << true << false;
        QTest::newRow("help wins") << QStringList{"storage", "--help", "--bogus"} << int(CommandLine::Help)
                                   << QStringList() << false << false;
        QTest::newRow("help word") << QStringList{"help"} << int(CommandLine::Help) << QStringList() << false << false;
        QTest::newRow("version") << QStringList{"--version"} << int(CommandLine::Version) << QStringList() << false
                                 << false;
        QTest::newRow("unknown option") << QStringList{"--frobnicate"} << int(CommandLine::Overview) << QStringList()
                                        << false << true;
        QTest::newRow("unknown command") << QStringList{"reboot"} << int(CommandLine::Overview) << QStringList()
                                         << false << true;
        QTest::newRow("stray argument") << QStringList{"sims", "SIM1"} << int(CommandLine::Sims) << QStringList()
                                        << false << true;
    }

    void commandLines()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, command);
        QFETCH(QStringList, parts);
        QFETCH(bool, json);
        QFETCH(bool, error);
        const CommandLine parsed = CommandLine::parse(arguments);
        QCOMPARE(!parsed.error.isEmpty(), error);
        if (error)
            return;
        QCOMPARE(int(parsed.command), command);
        QCOMPARE(parsed.storageParts, parts);
        QCOMPARE(parsed.json, json);
    }

    void builtInInterfacesMatchTheirDescriptions()
    {
        const InterfaceDescription features = InterfaceDescription::builtIn(QStringLiteral("org.norvu.plinth.Features"));
        QVERIFY(features.isValid());
        QCOMPARE(features.queries().size(), 22);
        QCOMPARE(features.queries().first().name, QStringLiteral("hasGNSS"));
        QCOMPARE(features.queries().first().outArgs.first().name, QStringLiteral("hasGnss"));
        QCOMPARE(features.properties().size(), 3);
        QVERIFY(features.properties().first().readable);
        QVERIFY(features.signal(QStringLiteral("cameraEnabledChanged")));
        QCOMPARE(features.signal(QStringLiteral("cameraEnabledChanged"))->outArgs.first().name,
                 QStringLiteral("cameraEnabled"));

        const InterfaceDescription storages = InterfaceDescription::builtIn(QStringLiteral("org.norvu.plinth.Storages"));
        QCOMPARE(storages.queries().size(), 6);
        QCOMPARE(storages.signalList().size(), 2);
        QCOMPARE(InterfaceDescription::builtIn(QStringLiteral("org.norvu.plinth.SIM")).signalList().size(), 3);
        QVERIFY(!InterfaceDescription::builtIn(QStringLiteral("org.example.None")).isValid());
    }

    void interfaceParsing()
    {
        const QByteArray xml = "<node><interface name=\"a.B\">"
                               "<method name=\"query\"><arg type=\"s\" name=\"answer\" direction=\"out\"/></method>"
                               "<method name=\"setter\"><arg type=\"s\" name=\"value\"/></method>"
                               "<method name=\"twoOut\"><arg type=\"s\" direction=\"out\"/><arg type=\"s\" "
                               "direction=\"out\"/></method>"
                               "<signal name=\"changed\"><arg type=\"b\" name=\"on\"/></signal>"
                               "<property name=\"w\" type=\"u\" access=\"write\"/>"
                               "</interface></node>";
        const InterfaceDescription description = InterfaceDescription::parse(xml, QStringLiteral("a.B"));
        QCOMPARE(description.methods().size(), 3);
        QCOMPARE(description.queries().size(), 1);
        QCOMPARE(description.queries().first().name, QStringLiteral("query"));
        QCOMPARE(description.signal(QStringLiteral("changed"))->outArgs.first().name, QStringLiteral("on"));
        QVERIFY(!description.properties().first().readable);
        // Another interface, broken XML and nothing at all: empty descriptions.
        QVERIFY(!InterfaceDescription::parse(xml, QStringLiteral("a.C")).isValid());
        QVERIFY(!InterfaceDescription::parse("<node><interface name=\"a.B\"><method", QStringLiteral("a.B")).isValid());
        QVERIFY(!InterfaceDescription::parse(QByteArray(), QStringLiteral("a.B")).isValid());
    }

    void monitorEntries()
    {
        const QVector<InterfaceDescription> interfaces{
            InterfaceDescription::builtIn(QStringLiteral("org.norvu.plinth.Features")),
            InterfaceDescription::builtIn(QStringLiteral("org.norvu.plinth.Storages"))};
        const QDateTime when(QDate(2024, 5, 6), QTime(7, 8, 9, 10), Qt::UTC);
        const QVariantMap event = SignalMonitor::describe(
            QStringLiteral("org.norvu.plinth.Storages"), QStringLiteral("/org/norvu/plinth/Storages"),
            QStringLiteral("externalDriveChanged"),
            {QVariantMap{{QStringLiteral("bytesTotal"), QVariant::fromValue(quint64(1) << 40)}}, 5}, when, interfaces);
        QCOMPARE(SignalMonitor::jsonLine(event),
                 QByteArray("{\"arguments\":{\"arg1\":5,\"externalDriveInfo\":{\"bytesTotal\":1099511627776}},"
                            "\"interface\":\"org.norvu.plinth.Storages\",\"path\":\"/org/norvu/plinth/Storages\","
                            "\"signal\":\"externalDriveChanged\",\"time\":\"2024-05-06T07:08:09.010Z\"}\n"));
        const QString text = SignalMonitor::text(event);
        const QString clock = when.toLocalTime().toString(QStringLiteral("HH:mm:ss.zzz"));
        QCOMPARE(text, clock + QStringLiteral(" org.norvu.plinth.Storages.externalDriveChanged\n"
                                              "  Arg1:                5\n"
                                              "  External drive info:\n"
                                              "    Total:             1.0 TiB\n"));

        const QVariantMap camera = SignalMonitor::describe(
            QStringLiteral("org.norvu.plinth.Features"), QStringLiteral("/org/norvu/plinth/Features"),
            QStringLiteral("cameraEnabledChanged"), {false}, when, interfaces);
        QCOMPARE(camera.value(QStringLiteral("arguments")).toMap(), (QVariantMap{{QStringLiteral("cameraEnabled"), false}}));
        QVERIFY(SignalMonitor::text(camera).endsWith(QStringLiteral("  Camera enabled: no\n")));
    }

    void errorsReadAsOneLine_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("expected");
        QTest::newRow("no owner") << "org.freedesktop.DBus.Error.NameHasNoOwner"
                                  << "plinthd is not running: nobody owns org.norvu.plinth on the system bus";
        QTest::newRow("unknown service") << "org.freedesktop.DBus.Error.ServiceUnknown"
                                         << "plinthd is not running: nobody owns org.norvu.plinth on the system bus";
        QTest::newRow("denied") << "org.freedesktop.DBus.Error.AccessDenied" << "getCpuModel: access denied: why";
        QTest::newRow("no reply") << "org.freedesktop.DBus.Error.NoReply"
                                  << "getCpuModel: plinthd gave no answer within 300 s";
        QTest::newRow("activation") << "org.freedesktop.DBus.Error.Spawn.ChildExited"
                                    << "plinthd could not be started: why";
        QTest::newRow("other") << "org.example.Error.Odd" << "getCpuModel failed: org.example.Error.Odd: why";
    }

    void errorsReadAsOneLine()
    {
        QFETCH(QString, name);
        QFETCH(QString, expected);
        const QString text = BusQuery::describeError(QDBusMessage::createError(name, QStringLiteral("why")),
                                                     QStringLiteral("getCpuModel"), 300000);
        QCOMPARE(text, expected);
        QVERIFY(!text.contains(QLatin1Char('\n')));
    }

    void helpNamesEveryCommand()
    {
        const QString help = CommandLine::helpText();
        for (const char *word : {"status", "features", "sims", "storage", "monitor", "--json", "--help"})
            QVERIFY2(help.contains(QLatin1String(word)), word);
        for (const QString &part : Reports::storageParts())
            QVERIFY(help.contains(part));
    }
};

QTEST_GUILESS_MAIN(TestPlinthCtlFormat)
#include "tst_plinthctlformat.moc"
