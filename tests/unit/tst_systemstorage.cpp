// SPDX-License-Identifier: BSD-3-Clause
// The system categories on real folders and a real package database: in the
// private mount namespace CTest runs it in (needs root), with tmpfs over /opt,
// /var/cache and /var/log.
#include "mountnamespace.h"
#include "rpmtestdatabase.h"
#include "testfiles.h"
#include "foldersizes.h"
#include "folderwatches.h"
#include "packagesizes.h"
#include "systemstoragecategories.h"

#include <QDir>
#include <QFile>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

class TestSystemStorage : public QObject
{
    Q_OBJECT

    QTemporaryDir m_workdir;
    // Kept for the whole program, as in the daemon: each test changes the
    // folders the previous one measured.
    FolderWatches m_watches{FolderWatches::DefaultMaxWatches};
    FolderSizes m_folders{m_watches};
    PackageSizes m_packages{m_watches};
    SystemStorageCategories m_categories{m_folders, m_packages};

private slots:
    void initTestCase()
    {
        if (!MountNamespace::inside() || qEnvironmentVariableIsEmpty("PLINTHD_SOURCE_DIR"))
            QSKIP("needs root, the mount namespace of its own and PLINTHD_SOURCE_DIR that ctest gives it");
        for (const char *path : {"/opt", "/var/cache", "/var/log"})
            QVERIFY(MountNamespace::mount({"-t", "tmpfs", "tmpfs", path}));
        QVERIFY(RpmTestDatabase::install(m_workdir.path(), {{"tarn-maps", 4096},
                                                             {"tarn-mail", 100000},
                                                             {"harbour-x", 999},
                                                             {"kernel-debuginfo", 3000000}}));
    }

    void init()
    {
        for (const char *path : {"/opt/*", "/var/cache/*", "/var/log/*"})
            QProcess::execute("sh", {"-c", QStringLiteral("rm -rf %1").arg(path)});
    }

    void categories()
    {
        TestFiles::write("/opt/sdk/bin/tool", 1000, 0);
        TestFiles::write("/opt/sdk/user-file", 500, 1000);
        TestFiles::write("/var/cache/core-dumps/core.1", 2000, 0);
        TestFiles::write("/var/cache/core-dumps/theirs/core.2", 700, 0);
        QVERIFY(::chown("/var/cache/core-dumps/theirs", 1000, 1000) == 0); // not entered
        TestFiles::write("/var/log/messages", 300, 0);
        TestFiles::write("/var/log/service.log", 40, 999); // a service account's
        // A dangling link has no owner to match (QFileInfo reports none).
        QVERIFY(::symlink("/var/log/gone", "/var/log/dangling") == 0);
        TestFiles::write("/var/log/big", qint64(5) << 30, 0);
        QVERIFY(::symlink("/var/log/big", "/var/log/tobig") == 0); // counts its own length

        const QVariantMap map = m_categories.measure();
        QCOMPARE(map.size(), 9);
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            QVERIFY2(it.value().userType() == QMetaType::ULongLong, qPrintable(it.key()));
        QCOMPARE(map.value("bytesUsedApps"), QVariant(qulonglong(104096)));
        QCOMPARE(map.value("bytesUsedDebugInfo"), QVariant(qulonglong(3000000)));
        QCOMPARE(map.value("bytesUsedSDK"), QVariant(qulonglong(1000)));
        QCOMPARE(map.value("bytesUsedCoreDumps"), QVariant(qulonglong(2000)));
        const qulonglong logs = 300 + (qulonglong(5) << 30) + qstrlen("/var/log/big");
        QCOMPARE(map.value("bytesUsedSystemLogs"), QVariant(logs));

        const QStorageInfo root(QStringLiteral("/"));
        QCOMPARE(map.value("bytesTotal"), QVariant(qulonglong(root.bytesTotal())));
        const qulonglong used = map.value("bytesUsed").toULongLong();
        QCOMPARE(used, map.value("bytesTotal").toULongLong() - map.value("bytesAvailable").toULongLong());
        QCOMPARE(map.value("bytesUsedOther").toULongLong(), used - 104096 - 3000000 - 1000 - 2000 - logs);
    }

    void missingFoldersCountZero()
    {
        const QVariantMap map = m_categories.measure();
        QCOMPARE(map.value("bytesUsedSDK"), QVariant(qulonglong(0)));
        QCOMPARE(map.value("bytesUsedCoreDumps"), QVariant(qulonglong(0)));
        QCOMPARE(map.value("bytesUsedSystemLogs"), QVariant(qulonglong(0)));
    }

    void otherWrapsWhenCategoriesExceedTheUsedSpace()
    {
        // A sparse log far larger than the whole root file system.
        TestFiles::write("/var/log/enormous", qint64(1) << 50, 0);
        const QVariantMap map = m_categories.measure();
        const qulonglong used = map.value("bytesUsed").toULongLong();
        QVERIFY(used < (qulonglong(1) << 50));
        const qulonglong other = map.value("bytesUsedOther").toULongLong();
        QCOMPARE(other, used - 104096 - 3000000 - (qulonglong(1) << 50));
        QVERIFY(other > (qulonglong(1) << 63)); // wrapped, not clamped
    }
};

QTEST_GUILESS_MAIN(TestSystemStorage)

#include "tst_systemstorage.moc"
