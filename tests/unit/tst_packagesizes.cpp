// SPDX-License-Identifier: BSD-3-Clause
// Package size sums on a real RPM database of tiny packages built by the
// test bench (tests/harness/rpmdb.py), made the default database through HOME.
#include "packagesizes.h"
#include "rpmtestdatabase.h"

#include <QTemporaryDir>
#include <QtTest>

#include <thread>
#include <vector>

class TestPackageSizes : public QObject
{
    Q_OBJECT

    QTemporaryDir m_workdir;

private slots:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("PLINTHD_SOURCE_DIR"))
            QSKIP("PLINTHD_SOURCE_DIR is not set (run the tests through ctest)");
        QVERIFY(m_workdir.isValid());
        QVERIFY(RpmTestDatabase::install(m_workdir.path(),
                                         {{"tarn-maps", 4096},
                                          {"tarn-mail", 100000},
                                          {"tarn-", 7},
                                          {"tarn", 50},
                                          {"xtarn-a", 60},
                                          {"Tarn-upper", 70},
                                          {"tarnish", 80},
                                          {"kernel-debuginfo", 3000000},
                                          {"glibc-debuginfo", 12345},
                                          {"debuginfo", 90},
                                          {"glibc-debuginfo-common", 110},
                                          {"zero-debuginfo", 0}}));
    }

    void sums_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<quint64>("expected");
        QTest::newRow("store applications") << "tarn-*" << quint64(4096 + 100000 + 7);
        QTest::newRow("debug information") << "*-debuginfo" << quint64(3000000 + 12345);
        QTest::newRow("one name") << "tarn" << quint64(50);
        QTest::newRow("no match") << "nothing-*" << quint64(0);
        QTest::newRow("everything") << "*"
                                    << quint64(4096 + 100000 + 7 + 50 + 60 + 70 + 80 + 3000000 + 12345 + 90 + 110);
    }

    void sums()
    {
        QFETCH(QString, pattern);
        QFETCH(quint64, expected);
        QCOMPARE(PackageSizes::sum(pattern), expected);
    }

    void concurrentSums()
    {
        // Plain threads: their start and join are visible to ThreadSanitizer,
        // unlike the hand-overs inside Qt's thread pool.
        std::vector<quint64> sums(16);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t, &sums] {
                for (int i = t; i < 16; i += 4)
                    sums[i] = PackageSizes::sum(i % 2 ? QStringLiteral("tarn-*") : QStringLiteral("*-debuginfo"));
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        for (int i = 0; i < 16; ++i)
            QCOMPARE(sums[i], i % 2 ? quint64(104103) : quint64(3012345));
    }
};

QTEST_GUILESS_MAIN(TestPackageSizes)
#include "tst_packagesizes.moc"
