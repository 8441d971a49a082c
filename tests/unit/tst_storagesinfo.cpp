// SPDX-License-Identifier: BSD-3-Clause
// StoragesInfo on recorded devices (umockdev) and real mounts in the test's
// own mount namespace: the summary and drive maps, the three slots with their
// deliberate asymmetries, and queries on pool threads while the slots rebuild
// on the main thread.
#include "storagesinfo.h"
#include "umockdevtestbed.h"

#include <partitionmanager.h>

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

#include <sys/mount.h>

namespace {

const char *const EmmcDisk = UmockdevTestbed::EmmcDisk;
const qint64 MiB = 1024 * 1024;

QVariantMap mapArgument(const QSignalSpy &spy, int index)
{
    return spy.at(index).at(0).toMap();
}

QVariantMapList partitionsInfo(const QVariantMap &drive)
{
    return drive.value(QStringLiteral("partitionsInfo")).value<QVariantMapList>();
}

} // namespace

class TestStoragesInfo : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(UmockdevTestbed::preloaded(), "run with umockdev's preload library");
        QVERIFY(m_dir.isValid());
    }

    void init()
    {
        m_testbed = new UmockdevTestbed;
        QVERIFY(m_testbed->add("emmc"));
        m_info = new StoragesInfo;
        m_manager = m_info->findChild<PartitionManager *>();
        QVERIFY(m_manager);
        m_storageChanged = new QSignalSpy(m_info, &StoragesInfo::externalStorageChanged);
        m_driveChanged = new QSignalSpy(m_info, &StoragesInfo::externalDriveChanged);
    }

    void cleanup()
    {
        delete m_storageChanged;
        delete m_driveChanged;
        delete m_info;
        for (const QString &target : qAsConst(m_mounts))
            ::umount2(QFile::encodeName(target).constData(), MNT_DETACH);
        m_mounts.clear();
        delete m_testbed;
    }

    void noExternalStorage()
    {
        const QVariantMap summary = m_info->getExternalStorageInfo();
        QCOMPARE(summary.keys(), QStringList({"bytesAvailable", "bytesTotal", "bytesUsed",
                                              "countMountedPartitions", "deviceLabel", "mounted"}));
        QCOMPARE(summary.value("deviceLabel"), QVariant(QStringLiteral("external storage")));
        QCOMPARE(summary.value("mounted"), QVariant(false));
        QCOMPARE(summary.value("countMountedPartitions"), QVariant(0u));
        QCOMPARE(summary.value("bytesTotal"), QVariant(qulonglong(0)));
        QCOMPARE(summary.value("bytesAvailable"), QVariant(qulonglong(0)));
        QCOMPARE(summary.value("bytesUsed"), QVariant(qulonglong(0)));
        QVERIFY(m_info->getExternalStorageDrivesInfo().isEmpty());
    }

    void cardWithTwoPartitionsOneMounted()
    {
        QVERIFY(m_testbed->plug("sdcard"));
        // partitionAdded for each partition: the summary, then the drive.
        QTRY_COMPARE(m_driveChanged->count(), 2);
        QCOMPARE(m_storageChanged->count(), 2);
        QCOMPARE(mapArgument(*m_storageChanged, 1).value("countMountedPartitions"), QVariant(0u));
        const QVariantMap drive = mapArgument(*m_driveChanged, 1);
        QCOMPARE(drive.value("driveName").toString(), QStringLiteral("SD16G"));
        QCOMPARE(drive.value("driveType").toString(), QStringLiteral("SD"));
        QCOMPARE(partitionsInfo(drive).size(), 2);
        clearSpies();

        const QString where = mountCard("mmcblk1p1", 8 * MiB);
        QTRY_COMPARE(m_storageChanged->count(), 1);
        QCOMPARE(m_driveChanged->count(), 1);
        const QVariantMap summary = mapArgument(*m_storageChanged, 0);
        QCOMPARE(summary.value("mounted"), QVariant(true));
        QCOMPARE(summary.value("countMountedPartitions"), QVariant(1u));
        QCOMPARE(summary.value("bytesTotal"), QVariant(qulonglong(8 * MiB)));
        QCOMPARE(summary.value("bytesAvailable"), QVariant(qulonglong(8 * MiB)));
        QCOMPARE(summary.value("bytesUsed"), QVariant(qulonglong(0)));

        const QVariantMapList parts = partitionsInfo(mapArgument(*m_driveChanged, 0));
        QCOMPARE(parts.size(), 2);
        QCOMPARE(parts.at(0).keys(), QStringList({"bytesAvailable", "bytesTotal", "bytesUsed", "driveName",
                                                  "mountPoint", "partitionLabel", "partitionName"}));
        QCOMPARE(parts.at(0).value("partitionName").toString(), QStringLiteral("PHOTOS 2024"));
        QCOMPARE(parts.at(0).value("mountPoint").toString(), where);
        QCOMPARE(parts.at(0).value("bytesTotal"), QVariant(qint64(8 * MiB)));
        QCOMPARE(parts.at(0).value("bytesUsed"), QVariant(qint64(0)));
        QCOMPARE(parts.at(1).value("partitionName").toString(), QStringLiteral("backup"));
        QCOMPARE(parts.at(1).value("mountPoint").toString(), QString());
        // Unmounted: the device size, nothing free, and nothing in the summary.
        QCOMPARE(parts.at(1).value("bytesTotal"), QVariant(qint64(10633216) * 512));
        QCOMPARE(parts.at(1).value("bytesAvailable"), QVariant(qint64(0)));

        QCOMPARE(m_info->getExternalStorageInfo(), summary);
        QCOMPARE(m_info->getExternalStorageDrivesInfo().size(), 1);
    }

    void sameSizeAnnouncedAgainIsIgnored()
    {
        QVERIFY(m_testbed->plug("sdcard"));
        QTRY_COMPARE(m_driveChanged->count(), 2);
        mountCard("mmcblk1p1", 8 * MiB);
        QTRY_COMPARE(m_driveChanged->count(), 3);
        clearSpies();

        const Partition card = m_manager->partitions(Partition::External).value(0);
        QCOMPARE(card.bytesTotal(), 8 * MiB);
        emit m_manager->storageAdded(card);
        QCOMPARE(m_storageChanged->count() + m_driveChanged->count(), 0);

        // The slot does not look at the storage type: a system partition of
        // another size is news.
        emit m_manager->storageAdded(m_manager->partitions(Partition::System).value(0));
        QCOMPARE(m_storageChanged->count(), 1);
        QCOMPARE(m_driveChanged->count(), 1);
    }

    void internalPartitionAddedIsIgnored()
    {
        emit m_manager->partitionAdded(m_manager->partitions(Partition::Any).value(0));
        QCOMPARE(m_storageChanged->count() + m_driveChanged->count(), 0);
    }

    void lastRemovalAnnouncesEmptyMaps()
    {
        QVERIFY(m_testbed->plug("sdcard"));
        QTRY_COMPARE(m_driveChanged->count(), 2);
        clearSpies();

        m_testbed->unplug("sdcard", EmmcDisk);
        QTRY_COMPARE(m_driveChanged->count(), 2);
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(mapArgument(*m_storageChanged, i), QVariantMap());
            QCOMPARE(mapArgument(*m_driveChanged, i), QVariantMap());
        }
        // A query in the same state answers the whole summary.
        const QVariantMap summary = m_info->getExternalStorageInfo();
        QCOMPARE(summary.value("deviceLabel").toString(), QStringLiteral("external storage"));
        QCOMPARE(summary.value("mounted"), QVariant(false));
        QVERIFY(m_info->getExternalStorageDrivesInfo().isEmpty());
    }

    void removingOneOfTwoDrivesAnnouncesTheRest()
    {
        QVERIFY(m_testbed->plug("sdcard"));
        QVERIFY(m_testbed->plug("usbstick"));
        QTRY_COMPARE(m_driveChanged->count(), 3);
        clearSpies();

        m_testbed->unplug("usbstick", EmmcDisk);
        QTRY_COMPARE(m_driveChanged->count(), 1);
        // The stick's drive is announced gone with an empty map; the summary
        // still describes the card.
        QCOMPARE(mapArgument(*m_driveChanged, 0), QVariantMap());
        QCOMPARE(mapArgument(*m_storageChanged, 0).value("deviceLabel").toString(),
                 QStringLiteral("external storage"));
        const QVariantMapList drives = m_info->getExternalStorageDrivesInfo();
        QCOMPARE(drives.size(), 1);
        QCOMPARE(drives.at(0).value("driveType").toString(), QStringLiteral("SD"));
    }

    void driveKeyCutsTwoCharacters()
    {
        // sdb1 and sdc1 both give the key "sd": two sticks make one drive map.
        QVERIFY(m_testbed->plug("usbstick"));
        QVERIFY(m_testbed->plug("usbstick2"));
        QTRY_COMPARE(m_driveChanged->count(), 2);
        const QVariantMapList drives = m_info->getExternalStorageDrivesInfo();
        QCOMPARE(drives.size(), 1);
        QCOMPARE(drives.at(0).value("driveName").toString(), QStringLiteral("Flash Disk"));
        QCOMPARE(drives.at(0).value("driveType").toString(), QStringLiteral("USB"));
        const QVariantMapList parts = partitionsInfo(drives.at(0));
        QCOMPARE(parts.size(), 2);
        QCOMPARE(parts.at(0).value("partitionName").toString(), QStringLiteral("STICK"));
        QCOMPARE(parts.at(1).value("partitionName").toString(), QStringLiteral("SPARE"));
    }

    // Queries rebuild on pool threads while the slots rebuild and announce on
    // the main thread, without the query mutex. Under ThreadSanitizer any
    // unguarded access to the shared maps fails the test.
    void queriesRaceWithSlots()
    {
        QVERIFY(m_testbed->plug("sdcard"));
        QTRY_COMPARE(m_driveChanged->count(), 2);
        mountCard("mmcblk1p1", 8 * MiB);
        QTRY_COMPARE(m_driveChanged->count(), 3);
        const Partition card = m_manager->partitions(Partition::External).value(0);
        const Partition other = m_manager->partitions(Partition::External).value(1);

        // Plain threads: their start and join are visible to ThreadSanitizer,
        // unlike the hand-overs inside Qt's thread pool.
        constexpr int Threads = 4;
        constexpr int Rounds = 25;
        std::vector<QVector<QVariantMap>> summaries(Threads);
        std::vector<QVector<QVariantMapList>> drives(Threads);
        std::atomic<int> finished(0);
        std::vector<std::thread> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.emplace_back([this, t, &summaries, &drives, &finished] {
                for (int i = 0; i < Rounds; ++i) {
                    summaries[t].append(m_info->getExternalStorageInfo());
                    drives[t].append(m_info->getExternalStorageDrivesInfo());
                }
                ++finished;
            });
        }
        // The slots keep rebuilding for as long as the queries run.
        for (int i = 0; finished.load() < Threads; ++i) {
            emit m_manager->partitionAdded(card);
            emit m_manager->storageAdded(i % 2 ? card : other);
            emit m_manager->partitionRemoved(other);
        }
        for (std::thread &thread : threads)
            thread.join();
        for (int t = 0; t < Threads; ++t) {
            QCOMPARE(summaries[t].size(), Rounds);
            for (const QVariantMap &summary : summaries[t]) {
                QCOMPARE(summary.value("countMountedPartitions"), QVariant(1u));
                QCOMPARE(summary.value("bytesTotal"), QVariant(qulonglong(8 * MiB)));
            }
            for (const QVariantMapList &list : drives[t])
                QCOMPARE(list.size(), 1);
        }
        QCOMPARE(m_storageChanged->count(), m_driveChanged->count());
    }

private:
    QString mountCard(const QString &device, qint64 size)
    {
        const QString target = m_dir.filePath(device + QString::number(m_mounts.size()));
        if (!QDir().mkpath(target))
            return QString();
        const QByteArray options = "size=" + QByteArray::number(size);
        if (::mount(QFile::encodeName("/dev/" + device).constData(), QFile::encodeName(target).constData(),
                    "tmpfs", 0, options.constData()) != 0) {
            qWarning("mount failed: %s", strerror(errno));
            return QString();
        }
        m_mounts.append(target);
        return target;
    }

    void clearSpies()
    {
        m_storageChanged->clear();
        m_driveChanged->clear();
    }

    QTemporaryDir m_dir;
    QStringList m_mounts;
    UmockdevTestbed *m_testbed = nullptr;
    StoragesInfo *m_info = nullptr;
    PartitionManager *m_manager = nullptr;
    QSignalSpy *m_storageChanged = nullptr;
    QSignalSpy *m_driveChanged = nullptr;
};

QTEST_GUILESS_MAIN(TestStoragesInfo)
#include "tst_storagesinfo.moc"
