// Package size sums on a real RPM database of tiny packages built by the
// test bench (tests/harness/rpmdb.py), made the default database through HOME.
#include "packagesizes.h"
#include "rpmtestdatabase.h"

#include <QTemporaryDir>
#include <QtConcurrent>
#include <QtTest>

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
        QList<QFuture<quint64>> futures;
        QThreadPool pool;
        pool.setMaxThreadCount(4);
        for (int i = 0; i < 16; ++i) {
            const QString pattern = i % 2 ? QStringLiteral("tarn-*") : QStringLiteral("*-debuginfo");
            futures << QtConcurrent::run(&pool, [pattern] { return PackageSizes::sum(pattern); });
        }
        for (int i = 0; i < futures.size(); ++i)
            QCOMPARE(futures[i].result(), i % 2 ? quint64(104103) : quint64(3012345));
    }
};

QTEST_GUILESS_MAIN(TestPackageSizes)
#include "tst_packagesizes.moc"
