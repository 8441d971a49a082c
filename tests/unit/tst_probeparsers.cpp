// SPDX-License-Identifier: BSD-3-Clause
// The text side of SysInfo's probes, fed good, odd and hostile input.
#include "probeparsers.h"

#include <QtTest>

using namespace ProbeParsers;

namespace {

QByteArray bytes(const char *data, int size)
{
    return QByteArray(data, size);
}

QVariantList uints(std::initializer_list<uint> values)
{
    QVariantList list;
    for (uint value : values)
        list.append(QVariant::fromValue<uint>(value));
    return list;
}

// Every element must be a QVariant of uint: the bus shows them as "v" of "u".
bool allUInt(const QVariantList &list)
{
    return std::all_of(list.cbegin(), list.cend(),
                       [](const QVariant &value) { return value.userType() == QMetaType::UInt; });
}

const QStringList LscpuX86 = {
    QStringLiteral("Architecture:                    x86_64"),
    QStringLiteral("CPU op-mode(s):                  32-bit, 64-bit"),
    QStringLiteral("CPU(s):                          8"),
    QStringLiteral("On-line CPU(s) list:             0-7"),
    QStringLiteral("Model name:                      Example CPU"),
    QStringLiteral("CPU MHz:                         1995.312"),
};

} // namespace

class TestProbeParsers : public QObject
{
    Q_OBJECT

private slots:
    void splitLinesDropsEmptyLinesAndStopsAtNul()
    {
        QCOMPARE(splitLines(QByteArray()), QStringList());
        QCOMPARE(splitLines(QByteArray("\n\n\n")), QStringList());
        QCOMPARE(splitLines(QByteArray("a\n\nb\n")), (QStringList{"a", "b"}));
        QCOMPARE(splitLines(bytes("a\nb\0c\nd", 7)), (QStringList{"a", "b"}));
        QCOMPARE(splitLines(bytes("\0a\nb", 4)), QStringList());
        QCOMPARE(splitLines(QByteArray("no newline")), QStringList{"no newline"});
    }

    void splitLinesSurvivesBinary()
    {
        QByteArray noise;
        for (int i = 1; i < 256; ++i)
            noise.append(char(i));
        const QStringList lines = splitLines(noise.repeated(100));
        QCOMPARE(lines.size(), 101); // '\n' (10) splits each copy; no line is empty
    }

    void firstCaptureTakesGroupOneOfTheFirstMatchingLine()
    {
        const QStringList lines = {"x: 1", "y: 2", "y: 3"};
        QCOMPARE(firstCapture(QStringLiteral("^y:\\s+(\\d+)"), lines), QStringLiteral("2"));
        QCOMPARE(firstCapture(QStringLiteral("(\\d+)"), lines), QStringLiteral("1"));
    }

    void firstCaptureGivesNullWithoutMatch()
    {
        QVERIFY(firstCapture(QStringLiteral("^z:(.*)"), {"x: 1"}).isNull());
        QVERIFY(firstCapture(QStringLiteral("(.*)"), QStringList()).isNull());
    }

    void coresClockSpeedsAreMHz()
    {
        const QVariantList speeds = coresClockSpeeds({"1804800", "2208000"});
        QCOMPARE(speeds, uints({1804, 2208}));
        QVERIFY(allUInt(speeds));
    }

    // A "-" line repeats the last value, which is already MHz and is divided
    // again: a reused 1800 becomes 1.
    void coresClockSpeedsDivideAReusedValueAgain()
    {
        QCOMPARE(coresClockSpeeds({"1800000", "-"}), uints({1800, 1}));
        QCOMPARE(coresClockSpeeds({"1800000", "-", "-"}), uints({1800, 1, 0}));
        QCOMPARE(coresClockSpeeds({"1800000", "a-b", "2400000"}), uints({1800, 1, 2400}));
    }

    void coresClockSpeedsOfBadLines()
    {
        QCOMPARE(coresClockSpeeds({"-"}), uints({0}));
        QCOMPARE(coresClockSpeeds({"fast", "1800000.5", "99999999999999", "0x10"}), uints({0, 0, 0, 0}));
        // Blanks around the number are what toUInt() tolerates.
        QCOMPARE(coresClockSpeeds({" 1800000\t"}), uints({1800}));
        QCOMPARE(coresClockSpeeds({"999"}), uints({0}));
        QCOMPARE(coresClockSpeeds(QStringList()), QVariantList());
        QVERIFY(allUInt(coresClockSpeeds({"-", "x", "4294967295"})));
        QCOMPARE(coresClockSpeeds({"4294967295"}), uints({4294967}));
    }

    void modelFromCompatibleTakesTheLastPiece()
    {
        QCOMPARE(modelFromCompatible(bytes("acme,phone\0acme,xyz100\0", 24)), QStringLiteral("XYZ100"));
        QCOMPARE(modelFromCompatible(bytes("vendor,board\0vendor,soc-name\0", 29)), QStringLiteral("SOC-NAME"));
        QCOMPARE(modelFromCompatible(QByteArray("  acme,x1\n")), QStringLiteral("X1"));
        QCOMPARE(modelFromCompatible(QByteArray("single")), QStringLiteral("SINGLE"));
        QCOMPARE(modelFromCompatible(QByteArray("acme,x1,,")), QStringLiteral("X1"));
    }

    void modelFromCompatibleOfNothing()
    {
        QVERIFY(modelFromCompatible(QByteArray()).isNull());
        QVERIFY(modelFromCompatible(QByteArray(" \n\t")).isNull());
        QVERIFY(modelFromCompatible(QByteArray(",,,")).isNull());
        // A piece that is only a NUL is not empty; what is left of it is.
        QVERIFY(modelFromCompatible(bytes("acme,\0", 6)).isEmpty());
    }

    void modelFromCompatibleOfBinary()
    {
        QByteArray noise;
        for (int i = 0; i < 256; ++i)
            noise.append(char(255 - i));
        QVERIFY(!modelFromCompatible(noise).isEmpty());
        const QString text = modelFromCompatible(QByteArray("acme,\xff\xfe") + QByteArray(200000, 'a'));
        QCOMPARE(text.size(), 200002);
        QVERIFY(text.endsWith(QStringLiteral("AAA")));
    }

    void cpuinfoHardwareLine()
    {
        QCOMPARE(cpuinfoHardware({"processor\t: 0", "Hardware\t: Qualcomm Technologies SDM630"}),
                 QStringLiteral("Qualcomm Technologies SDM630"));
        QCOMPARE(cpuinfoHardware({"Hardware : a", "Hardware : b"}), QStringLiteral("a"));
        // Anchored at the line start, and the value may not be empty.
        QVERIFY(cpuinfoHardware({"  Hardware : a"}).isNull());
        QVERIFY(cpuinfoHardware({"Hardware : "}).isNull());
        QVERIFY(cpuinfoHardware({"Hardware:x"}).isNull());
        QVERIFY(cpuinfoHardware(QStringList()).isNull());
    }

    void lscpuCoreCountIsAnchored()
    {
        QCOMPARE(lscpuCoreCount(LscpuX86), 8u);
        QCOMPARE(lscpuCoreCount({"On-line CPU(s) list: 0-7"}), 0u);
        QCOMPARE(lscpuCoreCount({" CPU(s): 4", "CPU(s): 2"}), 2u);
        QCOMPARE(lscpuCoreCount({"CPU(s): many"}), 0u);
        QCOMPARE(lscpuCoreCount(QStringList()), 0u);
    }

    void lscpuMaxClockPrefersTheMaximum()
    {
        QStringList lines = LscpuX86;
        lines.append(QStringLiteral("CPU max MHz:                     2208.0000"));
        lines.append(QStringLiteral("CPU min MHz:                     300.0000"));
        QCOMPARE(lscpuMaxClockMHz(lines), 2208u);
    }

    void lscpuMaxClockFallsBackToTheCurrentClock()
    {
        QCOMPARE(lscpuMaxClockMHz(LscpuX86), 1995u);
        QCOMPARE(lscpuMaxClockMHz({"CPU min MHz: 300.0000"}), 0u);
        QCOMPARE(lscpuMaxClockMHz(QStringList()), 0u);
        // Not anchored: a prefixed line still counts.
        QCOMPARE(lscpuMaxClockMHz({"  CPU max MHz: 3000.1"}), 3000u);
    }

    void memInfoTotalIsKiBTimes1024()
    {
        const QStringList lines = {"MemTotal:        3809096 kB", "MemFree:          123456 kB",
                                   "MemAvailable:    2000000 kB"};
        QCOMPARE(memInfoTotalBytes(lines), Q_UINT64_C(3900514304));
    }

    void memInfoFreeIsMemFreeNotMemAvailable()
    {
        const QStringList lines = {"MemTotal:        3809096 kB", "MemAvailable:    2000000 kB",
                                   "MemFree:          123456 kB"};
        QCOMPARE(memInfoFreeBytes(lines), Q_UINT64_C(123456) * 1024);
        QCOMPARE(memInfoFreeBytes({"MemAvailable:    2000000 kB"}), Q_UINT64_C(0));
    }

    void memInfoOfBadLines()
    {
        QCOMPARE(memInfoTotalBytes({" MemTotal: 10 kB"}), Q_UINT64_C(0));
        QCOMPARE(memInfoTotalBytes({"MemTotal: lots"}), Q_UINT64_C(0));
        QCOMPARE(memInfoTotalBytes({"MemTotal: 99999999999999999999999 kB"}), Q_UINT64_C(0));
        QCOMPARE(memInfoTotalBytes(QStringList()), Q_UINT64_C(0));
        QCOMPARE(memInfoFreeBytes({QStringLiteral("MemFree: ") + QString(100000, QLatin1Char('7'))}), Q_UINT64_C(0));
    }

    void screenResolutionOfTheFirstLineWithAMode()
    {
        QCOMPARE(screenResolution({"U:720x1440p-0"}), QStringLiteral("720x1440"));
        QCOMPARE(screenResolution({"none", "D:1080x2160p-60", "U:720x1440p-0"}), QStringLiteral("1080x2160"));
        QVERIFY(screenResolution({"no mode here", "x1"}).isEmpty());
        QVERIFY(screenResolution(QStringList()).isEmpty());
    }

    void hugeLinesDoNotMatter()
    {
        const QString huge(1 << 20, QLatin1Char('9'));
        QCOMPARE(lscpuCoreCount({huge, "CPU(s): 3"}), 3u);
        QCOMPARE(screenResolution({huge + QStringLiteral("x1")}), huge + QStringLiteral("x1"));
        QVERIFY(screenResolution({huge}).isEmpty());
        QVERIFY(screenResolution({huge + QStringLiteral("x")}).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestProbeParsers)
#include "tst_probeparsers.moc"
