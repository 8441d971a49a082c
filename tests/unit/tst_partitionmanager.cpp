// SPDX-License-Identifier: BSD-3-Clause
// PartitionManager on recorded devices (umockdev, events included) and a
// fixture mount table that the test rewrites: which partitions it lists, what
// it says about them, and which signals each change gives.
#include "umockdevtestbed.h"

#include <partitionmanager.h>

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {

const char *const EmmcDisk = UmockdevTestbed::EmmcDisk;
// Long enough for queued udev events to be handled; only used to show that
// nothing more arrives.
constexpr int SettleMilliseconds = 300;

// A mount table line. Mount paths that exist here carry the device number of
// the file system that is really there, as the kernel's table would: the
// manager checks it before measuring. The recorded devices are found by name.
QByteArray mountLine(int id, const QString &target, const char *source, const char *type)
{
    struct stat st = {};
    const bool exists = ::stat(QFile::encodeName(target).constData(), &st) == 0;
    const QByteArray devno = exists ? QByteArray::number(major(st.st_dev)) + ':' + QByteArray::number(minor(st.st_dev))
                                    : QByteArray("179:99");
    return QByteArray::number(id) + " 1 " + devno + " / " + QFile::encodeName(target) + " rw,relatime - " + type + ' '
            + source + " rw\n";
}

// The internal eMMC: system, user and an internal data partition (whose mount
// path does not exist here).
QByteArray baseTable()
{
    return "22 1 0:21 / /proc rw,relatime - proc proc rw\n" + mountLine(27, "/", "/dev/mmcblk0p1", "ext4")
            + mountLine(30, "/home", "/dev/mmcblk0p2", "ext4")
            + mountLine(31, "/media/data", "/dev/mmcblk0p3", "ext4");
}

QStringList names(const QVector<Partition> &partitions)
{
    QStringList out;
    for (const Partition &p : partitions)
        out << p.deviceName();
    return out;
}

Partition argument(const QSignalSpy &spy, int index)
{
    return spy.at(index).at(0).value<Partition>();
}

} // namespace

class TestPartitionManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(UmockdevTestbed::preloaded(), "run with umockdev's preload library");
        QVERIFY(m_dir.isValid());
        m_tablePath = m_dir.filePath("mountinfo");
    }

    void init()
    {
        m_testbed = new UmockdevTestbed;
        QVERIFY(m_testbed->add("emmc"));
        writeTable(baseTable());
        m_manager = new PartitionManager(m_tablePath);
        m_added = new QSignalSpy(m_manager, &PartitionManager::partitionAdded);
        m_storage = new QSignalSpy(m_manager, &PartitionManager::storageAdded);
        m_removed = new QSignalSpy(m_manager, &PartitionManager::partitionRemoved);
    }

    void cleanup()
    {
        delete m_added;
        delete m_storage;
        delete m_removed;
        delete m_manager;
        delete m_testbed;
    }

    void internalPartitionsByType()
    {
        QCOMPARE(names(m_manager->partitions(Partition::System)), QStringList({"mmcblk0p1"}));
        QCOMPARE(names(m_manager->partitions(Partition::User)), QStringList({"mmcblk0p2"}));
        QCOMPARE(names(m_manager->partitions(Partition::Mass)), QStringList({"mmcblk0p3"}));
        QCOMPARE(m_manager->partitions(Partition::Mass).value(0).status(), Partition::Inaccessible);
        QCOMPARE(names(m_manager->partitions(Partition::System | Partition::User | Partition::Mass)),
                 QStringList({"mmcblk0p1", "mmcblk0p2", "mmcblk0p3"}));
        QVERIFY(m_manager->partitions(Partition::External).isEmpty());

        const Partition root = m_manager->partitions(Partition::System).value(0);
        QCOMPARE(root.deviceLabel(), QStringLiteral("root"));
        QCOMPARE(root.partitionLabel(), QStringLiteral("system"));
        QCOMPARE(root.filesystemType(), QStringLiteral("ext4"));
        QCOMPARE(root.mountPath(), QStringLiteral("/"));
        QCOMPARE(root.status(), Partition::Mounted);
        QVERIFY(root.bytesTotal() > 0);
        QCOMPARE(root.drive().value("model").toString(), QStringLiteral("BJTD4R"));
        QCOMPARE(root.drive().value("vendor").toString(), QString());
        QCOMPARE(root.drive().value("connectionBus").toInt(), int(Partition::SDBus));
    }

    void cardArrivesMountsUnmountsAndLeaves()
    {
        QVERIFY(m_testbed->plug("sdcard"));
        QTRY_COMPARE(m_added->count(), 2);
        QCOMPARE(m_storage->count(), 0);
        const Partition first = argument(*m_added, 0);
        QCOMPARE(first.deviceName(), QStringLiteral("mmcblk1p1"));
        QCOMPARE(argument(*m_added, 1).deviceName(), QStringLiteral("mmcblk1p2"));
        QCOMPARE(first.storageType(), Partition::StorageTypes(Partition::External));
        QCOMPARE(first.status(), Partition::Unmounted);
        QCOMPARE(first.deviceLabel(), QStringLiteral("PHOTOS 2024"));
        QCOMPARE(first.filesystemType(), QStringLiteral("vfat"));
        QCOMPARE(first.bytesTotal(), qint64(20480000) * 512);
        QCOMPARE(first.drive().value("model").toString(), QStringLiteral("SD16G"));
        QCOMPARE(first.drive().value("connectionBus").toInt(), int(Partition::SDBus));
        QCOMPARE(names(m_manager->partitions(Partition::External)), QStringList({"mmcblk1p1", "mmcblk1p2"}));
        m_added->clear();

        // Mounted: the table says so, and the next udev event brings the rescan.
        writeTable(baseTable() + mountLine(40, m_dir.path(), "/dev/mmcblk1p1", "vfat"));
        m_testbed->uevent(EmmcDisk, "change");
        QTRY_COMPARE(m_storage->count(), 1);
        QCOMPARE(argument(*m_storage, 0).deviceName(), QStringLiteral("mmcblk1p1"));
        QCOMPARE(argument(*m_storage, 0).status(), Partition::Mounted);
        QCOMPARE(argument(*m_storage, 0).mountPath(), m_dir.path());
        QCOMPARE(m_added->count(), 0);

        // Unmounted: a bare partition again.
        writeTable(baseTable());
        m_testbed->uevent(EmmcDisk, "change");
        QTRY_COMPARE(m_added->count(), 1);
        QCOMPARE(argument(*m_added, 0).deviceName(), QStringLiteral("mmcblk1p1"));
        QCOMPARE(argument(*m_added, 0).status(), Partition::Unmounted);
        QCOMPARE(m_storage->count(), 1);

        m_testbed->unplug("sdcard", EmmcDisk);
        QTRY_COMPARE(m_removed->count(), 2);
        QCOMPARE(argument(*m_removed, 0).deviceName(), QStringLiteral("mmcblk1p1"));
        QCOMPARE(argument(*m_removed, 1).deviceName(), QStringLiteral("mmcblk1p2"));
        QVERIFY(m_manager->partitions(Partition::External).isEmpty());
    }

    void usbStickWithoutVendor()
    {
        QVERIFY(m_testbed->plug("usbstick"));
        QTRY_COMPARE(m_added->count(), 1);
        const Partition stick = argument(*m_added, 0);
        QCOMPARE(stick.deviceName(), QStringLiteral("sdb1"));
        QCOMPARE(stick.storageType(), Partition::StorageTypes(Partition::External));
        QCOMPARE(stick.deviceLabel(), QStringLiteral("STICK"));
        QCOMPARE(stick.partitionLabel(), QStringLiteral("Data partition"));
        QCOMPARE(stick.filesystemType(), QStringLiteral("exfat"));
        QCOMPARE(stick.drive().value("vendor").toString(), QString());
        QCOMPARE(stick.drive().value("model").toString(), QStringLiteral("Flash Disk"));
        QCOMPARE(stick.drive().value("connectionBus").toInt(), int(Partition::USBBus));
    }

    // udev announces the disk before it has probed the partitions; the first
    // news of the stick must already carry the label.
    void partitionWaitsForUdevProbe()
    {
        QVERIFY(m_testbed->plugUnprobed("usbstick"));
        m_testbed->uevent(EmmcDisk, "change");
        QTest::qWait(SettleMilliseconds);
        QCOMPARE(m_added->count(), 0);
        QVERIFY(m_manager->partitions(Partition::External).isEmpty());

        m_testbed->finishProbe("usbstick");
        QTRY_COMPARE(m_added->count(), 1);
        const Partition stick = argument(*m_added, 0);
        QCOMPARE(stick.deviceName(), QStringLiteral("sdb1"));
        QCOMPARE(stick.deviceLabel(), QStringLiteral("STICK"));
        QCOMPARE(stick.filesystemType(), QStringLiteral("exfat"));
        QCOMPARE(stick.partitionLabel(), QStringLiteral("Data partition"));
        QCOMPARE(names(m_manager->partitions(Partition::External)), QStringList({"sdb1"}));
        QTest::qWait(SettleMilliseconds);
        QCOMPARE(m_added->count(), 1);
    }

    // A partition udev never probes (the probe failed, or no udev runs) is still
    // listed once it is mounted.
    void mountedUnprobedPartitionIsListed()
    {
        QVERIFY(m_testbed->plugUnprobed("usbstick"));
        writeTable(baseTable() + mountLine(40, m_dir.path(), "/dev/sdb1", "exfat"));
        m_testbed->uevent(EmmcDisk, "change");
        QTRY_COMPARE(m_storage->count(), 1);
        QCOMPARE(argument(*m_storage, 0).deviceName(), QStringLiteral("sdb1"));
        QCOMPARE(argument(*m_storage, 0).status(), Partition::Mounted);
    }

    void refreshDoesNotNotify()
    {
        QVERIFY(m_testbed->plug("sdcard"));
        QTRY_COMPARE(m_added->count(), 2);
        m_added->clear();

        writeTable(baseTable() + mountLine(40, m_dir.path(), "/dev/mmcblk1p1", "vfat"));
        m_manager->refresh();
        QCOMPARE(names(m_manager->partitions(Partition::External)), QStringList({"mmcblk1p1", "mmcblk1p2"}));
        QCOMPARE(m_manager->partitions(Partition::External).value(0).status(), Partition::Mounted);
        QTest::qWait(100);
        QCOMPARE(m_added->count() + m_storage->count() + m_removed->count(), 0);

        // The next event announces what the refresh already saw.
        m_testbed->uevent(EmmcDisk, "change");
        QTRY_COMPARE(m_storage->count(), 1);
        QCOMPARE(m_added->count(), 0);
    }

private:
    void writeTable(const QByteArray &contents)
    {
        QFile file(m_tablePath);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        QCOMPARE(file.write(contents), qint64(contents.size()));
    }

    QTemporaryDir m_dir;
    QString m_tablePath;
    UmockdevTestbed *m_testbed = nullptr;
    PartitionManager *m_manager = nullptr;
    QSignalSpy *m_added = nullptr;
    QSignalSpy *m_storage = nullptr;
    QSignalSpy *m_removed = nullptr;
};

QTEST_GUILESS_MAIN(TestPartitionManager)
#include "tst_partitionmanager.moc"
