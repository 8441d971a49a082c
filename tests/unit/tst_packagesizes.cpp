// SPDX-License-Identifier: BSD-3-Clause
// Package size sums on a real RPM database of tiny packages built by the
// test bench (tests/harness/rpmdb.py), made the default database through HOME:
// read afresh, and kept until the database changes.
#include "folderwatches.h"
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
    FolderWatches m_watches{FolderWatches::DefaultMaxWatches};

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
        QCOMPARE(PackageSizes::read(pattern), expected);
        PackageSizes kept(m_watches);
        QCOMPARE(kept.sum(pattern), expected);
        QCOMPARE(kept.sum(pattern), expected);
    }

    // The library's own reading touches files of the database (its lock, the
    // log's shared memory): that must not count as a change.
    void aKeptSumIsReadOnce()
    {
        PackageSizes kept(m_watches);
        QCOMPARE(kept.sum("tarn-*"), quint64(104103));
        QCOMPARE(kept.sum("*-debuginfo"), quint64(3012345));
        const quint64 reads = kept.reads();
        for (int i = 0; i < 5; ++i) {
            QCOMPARE(kept.sum("tarn-*"), quint64(104103));
            QCOMPARE(kept.sum("*-debuginfo"), quint64(3012345));
        }
        QCOMPARE(kept.reads(), reads);
    }

    void aKeptSumFollowsPackagesInstalledAndRemoved()
    {
        PackageSizes kept(m_watches);
        QCOMPARE(kept.sum("tarn-*"), quint64(104103));
        QVERIFY(RpmTestDatabase::install(m_workdir.path(), {{"tarn-new", 1000}}));
        QCOMPARE(kept.sum("tarn-*"), quint64(105103));
        QCOMPARE(kept.sum("*-debuginfo"), quint64(3012345));
        QVERIFY(RpmTestDatabase::erase(m_workdir.path(), {"tarn-new"}));
        QCOMPARE(kept.sum("tarn-*"), quint64(104103));
    }

    void withoutWatchesEverySumIsRead()
    {
        FolderWatches none(0);
        PackageSizes unkept(none);
        QCOMPARE(unkept.sum("tarn-*"), quint64(104103));
        QCOMPARE(unkept.sum("tarn-*"), quint64(104103));
        QCOMPARE(unkept.reads(), quint64(2));
    }

    void concurrentSums()
    {
        // Plain threads: their start and join are visible to ThreadSanitizer,
        // unlike the hand-overs inside Qt's thread pool.
        PackageSizes kept(m_watches);
        std::vector<quint64> sums(16);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t, &sums, &kept] {
                for (int i = t; i < 16; i += 4) {
                    const QString pattern = i % 2 ? QStringLiteral("tarn-*") : QStringLiteral("*-debuginfo");
                    sums[i] = i % 4 < 2 ? kept.sum(pattern) : PackageSizes::read(pattern);
                }
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
