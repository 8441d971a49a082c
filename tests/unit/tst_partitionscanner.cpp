// SPDX-License-Identifier: BSD-3-Clause
// The mount table reader on fixture files, and the rules that turn mounts and
// block devices into typed partitions. No devices, no bus.
#include "partitionjoin.h"
#include "partitionscanner.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

namespace {

QString fixture(const char *name)
{
    return qEnvironmentVariable("PLINTHD_SOURCE_DIR") + QStringLiteral("/tests/data/storages/") + QLatin1String(name);
}

MountEntry mount(const QString &source, const QString &target, dev_t devno, const QString &fsType = QStringLiteral("ext4"),
                 const QString &fsRoot = QStringLiteral("/"))
{
    MountEntry entry;
    entry.source = source;
    entry.target = target;
    entry.fsType = fsType;
    entry.fsRoot = fsRoot;
    entry.devno = devno;
    return entry;
}

BlockDevice device(const QString &name, dev_t devnum, bool removable, int bus = Partition::OtherBus)
{
    BlockDevice d;
    d.sysName = name;
    d.devNode = QStringLiteral("/dev/") + name;
    d.devnum = devnum;
    d.isPartition = true;
    d.sizeBytes = 1024 * 1024;
    d.fsType = QStringLiteral("ext4");
    d.removable = removable;
    d.connectionBus = bus;
    return d;
}

// The device number the kernel gives the file system at a path: a mount
// entry for an existing path must carry it to count as mounted.
dev_t deviceOf(const QString &path)
{
    struct stat st = {};
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_dev : 0;
}

const Partition *byName(const QVector<Partition> &partitions, const QString &name)
{
    for (const Partition &p : partitions) {
        if (p.deviceName() == name)
            return &p;
    }
    return nullptr;
}

QStringList names(const QVector<Partition> &partitions)
{
    QStringList out;
    for (const Partition &p : partitions)
        out << p.deviceName();
    return out;
}

} // namespace

class TestPartitionScanner : public QObject
{
    Q_OBJECT

private slots:
    void readsEscapedPathsAndSkipsBrokenLines()
    {
        const QVector<MountEntry> entries = MountTable::read(fixture("escaped.mountinfo"));
        QCOMPARE(entries.size(), 5);
        QCOMPARE(entries.at(1).target, QStringLiteral("/"));
        QCOMPARE(entries.at(1).source, QStringLiteral("/dev/mmcblk0p1"));
        QCOMPARE(entries.at(1).devno, makedev(179, 1));
        QCOMPARE(entries.at(3).target, QStringLiteral("/srv/shared data"));
        QCOMPARE(entries.at(3).fsRoot, QStringLiteral("/alice/shared"));
        QCOMPARE(entries.at(4).target, QStringLiteral("/run/media/alice/PHOTOS 2024"));
        QCOMPARE(entries.at(4).fsType, QStringLiteral("vfat"));
    }

    void missingOrEmptyTableIsEmpty()
    {
        QVERIFY(MountTable::read(fixture("no-such.mountinfo")).isEmpty());
        QVERIFY(MountTable::read(fixture("empty.mountinfo")).isEmpty());
    }

    void rootAndHomeOnTheirOwnPartitions()
    {
        const QVector<Partition> parts = PartitionScanner::build(
                {mount("/dev/vda1", "/", deviceOf("/")), mount("/dev/vda2", "/home", deviceOf("/home"))},
                {device("vda1", makedev(254, 1), false), device("vda2", makedev(254, 2), false),
                 device("vda3", makedev(254, 3), false)});
        QCOMPARE(names(parts), QStringList({"vda1", "vda2"}));
        QCOMPARE(parts.at(0).storageType(), Partition::StorageTypes(Partition::System));
        QCOMPARE(parts.at(1).storageType(), Partition::StorageTypes(Partition::User));
        QCOMPARE(parts.at(0).status(), Partition::Mounted);
        QCOMPARE(parts.at(0).mountPath(), QStringLiteral("/"));
    }

    void mountGoneBeforeMeasuringIsUnmounted()
    {
        // The table lists a mount whose path now shows another file system.
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QVector<Partition> parts = PartitionScanner::build(
                {mount("/dev/sdb1", dir.path(), makedev(8, 17))}, {device("sdb1", makedev(8, 17), true)});
        QCOMPARE(parts.size(), 1);
        QCOMPARE(parts.at(0).status(), Partition::Unmounted);
        QVERIFY(parts.at(0).mountPath().isEmpty());
        QCOMPARE(parts.at(0).bytesTotal(), qint64(1024 * 1024));
        QCOMPARE(parts.at(0).bytesFree(), qint64(0));
    }

    void rootIsAlsoUserWithoutHomeMount()
    {
        const QVector<Partition> parts = PartitionScanner::build(
                {mount("/dev/vda1", "/", makedev(254, 1))}, {device("vda1", makedev(254, 1), false)});
        QCOMPARE(parts.size(), 1);
        QCOMPARE(parts.at(0).storageType(), Partition::System | Partition::User);
    }

    void homeAsBindMountOfTheRootDevice()
    {
        const QVector<Partition> parts = PartitionScanner::build(
                {mount("/dev/vda1", "/", deviceOf("/")),
                 mount("/dev/vda1", "/home", deviceOf("/"), "ext4", "/data/home")},
                {device("vda1", makedev(254, 1), false)});
        QCOMPARE(parts.size(), 1);
        QCOMPARE(parts.at(0).storageType(), Partition::System | Partition::User);
        QCOMPARE(parts.at(0).mountPath(), QStringLiteral("/"));
    }

    void rootWithoutBlockDevice()
    {
        const QVector<Partition> parts = PartitionScanner::build(
                {mount("overlay", "/", makedev(0, 40), "overlay")}, {device("vda1", makedev(254, 1), false)});
        QCOMPARE(parts.size(), 1);
        QCOMPARE(parts.at(0).deviceName(), QStringLiteral("overlay"));
        QCOMPARE(parts.at(0).filesystemType(), QStringLiteral("overlay"));
        QCOMPARE(parts.at(0).storageType(), Partition::System | Partition::User);
        QCOMPARE(parts.at(0).drive().value("connectionBus").toInt(), int(Partition::OtherBus));
    }

    void externalMountedOrNotAndMassStorage()
    {
        // A tmpfs names the card's device node as its source: matched by name,
        // since a virtual file system has no device number of the card.
        const QVector<Partition> parts = PartitionScanner::build(
                {mount("/dev/vda1", "/", makedev(254, 1)),
                 mount("/dev/mmcblk1p1", "/media/card", makedev(0, 55), "tmpfs"),
                 mount("/dev/vdb1", "/media/data", makedev(254, 17)),
                 mount("/dev/vdc1", "/srv/other", makedev(254, 33))},
                {device("vda1", makedev(254, 1), false), device("mmcblk1p1", makedev(179, 33), true, Partition::SDBus),
                 device("mmcblk1p2", makedev(179, 34), true, Partition::SDBus), device("vdb1", makedev(254, 17), false),
                 device("vdc1", makedev(254, 33), false)});
        QCOMPARE(names(parts), QStringList({"mmcblk1p1", "mmcblk1p2", "vda1", "vdb1"}));
        QCOMPARE(byName(parts, "mmcblk1p1")->storageType(), Partition::StorageTypes(Partition::External));
        QCOMPARE(byName(parts, "mmcblk1p1")->mountPath(), QStringLiteral("/media/card"));
        QCOMPARE(byName(parts, "mmcblk1p1")->filesystemType(), QStringLiteral("ext4"));
        QCOMPARE(byName(parts, "mmcblk1p2")->storageType(), Partition::StorageTypes(Partition::External));
        QCOMPARE(byName(parts, "mmcblk1p2")->status(), Partition::Unmounted);
        QCOMPARE(byName(parts, "mmcblk1p2")->bytesTotal(), qint64(1024 * 1024));
        QCOMPARE(byName(parts, "mmcblk1p2")->bytesFree(), qint64(0));
        QCOMPARE(byName(parts, "vdb1")->storageType(), Partition::StorageTypes(Partition::Mass));
    }

    void removableRootIsSystemOnly()
    {
        const QVector<Partition> parts = PartitionScanner::build(
                {mount("/dev/sda1", "/", makedev(8, 1))}, {device("sda1", makedev(8, 1), true, Partition::USBBus)});
        QCOMPARE(parts.size(), 1);
        QCOMPARE(parts.at(0).storageType(), Partition::System | Partition::User);
    }

    void laterMountHidesEarlierOne()
    {
        const QVector<Partition> parts = PartitionScanner::build(MountTable::read(fixture("overmount.mountinfo")),
                {device("vda1", makedev(254, 1), false), device("mmcblk0p3", makedev(179, 3), false)});
        // The data partition is hidden under a tmpfs: it is mounted nowhere visible.
        QCOMPARE(names(parts), QStringList({"vda1"}));
    }

    void unreachableMountIsInaccessible()
    {
        const QVector<Partition> parts = PartitionScanner::build(
                {mount("/dev/sdb1", "/no/such/mount/path", makedev(8, 17))},
                {device("sdb1", makedev(8, 17), true, Partition::USBBus)});
        QCOMPARE(parts.size(), 1);
        QCOMPARE(parts.at(0).status(), Partition::Inaccessible);
        QCOMPARE(parts.at(0).bytesTotal(), qint64(1024 * 1024));
        QCOMPARE(parts.at(0).bytesAvailable(), qint64(0));
    }

    void sizesComeFromStatvfs()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QVector<Partition> parts = PartitionScanner::build(
                {mount("/dev/sdb1", dir.path(), deviceOf(dir.path()))}, {device("sdb1", makedev(8, 17), true)});
        QCOMPARE(parts.size(), 1);
        struct statvfs fs = {};
        QCOMPARE(::statvfs(QFile::encodeName(dir.path()).constData(), &fs), 0);
        const Partition &p = parts.at(0);
        QCOMPARE(p.status(), Partition::Mounted);
        QCOMPARE(p.bytesTotal(), qint64(fs.f_blocks) * qint64(fs.f_frsize));
        // What only root may use is left out of the limit.
        QCOMPARE(p.bytesTotalLimit(), p.bytesTotal() - (p.bytesFree() - p.bytesAvailable()));
        QVERIFY(p.bytesAvailable() <= p.bytesFree());
    }

    void wholeDisksAndEmptyDevices()
    {
        BlockDevice stick = device("sdc", makedev(8, 32), true, Partition::USBBus);
        stick.isPartition = false;
        BlockDevice tabled = device("sdd", makedev(8, 48), true, Partition::USBBus);
        tabled.isPartition = false;
        tabled.hasPartitionTable = true;
        BlockDevice emptySlot = device("sde", makedev(8, 64), true, Partition::USBBus);
        emptySlot.isPartition = false;
        emptySlot.sizeBytes = 0;
        const QVector<Partition> parts = PartitionScanner::build({}, {stick, tabled, emptySlot});
        QCOMPARE(names(parts), QStringList({"sdc"}));
    }

    void naturalOrder()
    {
        QVector<BlockDevice> devices;
        for (int n : {10, 2, 1})
            devices.append(device(QStringLiteral("sda%1").arg(n), makedev(8, n), true));
        QCOMPARE(names(PartitionScanner::build({}, devices)), QStringList({"sda1", "sda2", "sda10"}));
    }

    void linkedSourceNamesItsDevice()
    {
        // A file system with an anonymous device number (major 0) mounted
        // through a link: only the resolved link ties it to the card. Sources
        // outside /dev are never resolved.
        QStringList asked;
        const auto resolve = [&asked](const QString &source) {
            asked << source;
            return source == QLatin1String("/dev/disk/by-label/CARD") ? QStringLiteral("/dev/mmcblk1p1") : QString();
        };
        const QVector<MountEntry> mounts = {mount("/dev/disk/by-label/CARD", "/media/card", makedev(0, 45), "btrfs"),
                                            mount("server:/share", "/mnt/share", makedev(0, 46), "nfs")};
        const QVector<PartitionJoin::Entry> entries = PartitionJoin::join(
                mounts, {device("mmcblk1p1", makedev(179, 33), true, Partition::SDBus)}, resolve);
        QCOMPARE(entries.size(), 1);
        QCOMPARE(entries.at(0).data->deviceName, QStringLiteral("mmcblk1p1"));
        QCOMPARE(entries.at(0).data->storageType, Partition::StorageTypes(Partition::External));
        QCOMPARE(entries.at(0).mount, &mounts.at(0));
        // Not measured: unmounted, with the device's size, until the scanner asks the file system.
        QCOMPARE(entries.at(0).data->status, Partition::Unmounted);
        QCOMPARE(entries.at(0).data->bytesTotal, qint64(1024 * 1024));
        QCOMPARE(asked, QStringList({"/dev/disk/by-label/CARD"}));
    }

    void nullPartitionIsNeutral()
    {
        const Partition p;
        QCOMPARE(p.status(), Partition::Unmounted);
        QCOMPARE(p.bytesTotal(), qint64(0));
        QVERIFY(p.deviceName().isEmpty());
        QVERIFY(!p.storageType());
    }
};

QTEST_GUILESS_MAIN(TestPartitionScanner)
#include "tst_partitionscanner.moc"
