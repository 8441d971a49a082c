// SPDX-License-Identifier: BSD-3-Clause
// The kernel's mount table (mountinfo format) as libmount parses it for the
// partition manager, and the partitions joined from it and a fixed set of
// block devices: an internal eMMC with its root and /home partitions and a
// removable SD card. And the mount points as the kept folder trees read the
// same table.
#include "fuzzinput.h"

#include "mountpoints.h"
#include "mounttable.h"
#include "partitionscanner.h"

#include <QSet>

#include <algorithm>

#include <sys/mman.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

// One in-memory file, rewritten for each input: opening /proc/self/fd/N
// gives a fresh reader at its start, as the kernel's own table does.
QString tablePath(const uint8_t *data, size_t size)
{
    static const int fd = ::memfd_create("mountinfo", 0);
    PLINTH_FUZZ_CHECK(fd >= 0);
    PLINTH_FUZZ_CHECK(::ftruncate(fd, 0) == 0);
    PLINTH_FUZZ_CHECK(size == 0 || ::pwrite(fd, data, size, 0) == ssize_t(size));
    return QStringLiteral("/proc/self/fd/%1").arg(fd);
}

BlockDevice device(const char *name, int minor, bool isPartition, bool removable)
{
    BlockDevice out;
    out.sysName = QString::fromLatin1(name);
    out.devNode = QStringLiteral("/dev/") + out.sysName;
    out.devnum = makedev(179, minor);
    out.isPartition = isPartition;
    out.hasPartitionTable = !isPartition;
    out.sizeBytes = qint64(1) << 30;
    out.fsType = QStringLiteral("ext4");
    out.removable = removable;
    out.connectionBus = removable ? Partition::SDBus : Partition::OtherBus;
    return out;
}

const QVector<BlockDevice> &devices()
{
    static const QVector<BlockDevice> list = {
        device("mmcblk0", 0, false, false),  device("mmcblk0p1", 1, true, false),
        device("mmcblk0p2", 2, true, false), device("mmcblk1", 32, false, true),
        device("mmcblk1p1", 33, true, true),
    };
    return list;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QVector<MountEntry> mounts = MountTable::read(tablePath(data, size));
    for (const MountEntry &entry : mounts)
        PLINTH_FUZZ_CHECK(!entry.target.isEmpty());

    // The mount points as the kept folder trees read them: sorted, a table
    // compared with itself shows no change, and compared with an empty one
    // every mount point it holds.
    const std::vector<MountPoints::Mount> points =
            MountPoints::parse(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    PLINTH_FUZZ_CHECK(std::is_sorted(points.cbegin(), points.cend()));
    PLINTH_FUZZ_CHECK(MountPoints::changed(points, points).empty());
    const std::vector<std::string> all = MountPoints::changed(points, {});
    PLINTH_FUZZ_CHECK(std::is_sorted(all.cbegin(), all.cend()));
    PLINTH_FUZZ_CHECK(std::adjacent_find(all.cbegin(), all.cend()) == all.cend());
    for (const MountPoints::Mount &mount : points)
        PLINTH_FUZZ_CHECK(std::binary_search(all.cbegin(), all.cend(), mount.point));

    const QVector<Partition> partitions = PartitionScanner::build(mounts, devices());
    QSet<QString> names;
    for (const Partition &partition : partitions) {
        // Every partition listed has a storage type, appears once, and is
        // either mounted where the table says or not mounted at all.
        PLINTH_FUZZ_CHECK(partition.storageType() != Partition::StorageTypes());
        PLINTH_FUZZ_CHECK(!names.contains(partition.deviceName() + partition.mountPath()));
        names.insert(partition.deviceName() + partition.mountPath());
        PLINTH_FUZZ_CHECK(partition.bytesTotal() >= 0 && partition.bytesTotalLimit() >= 0);
        if (partition.status() == Partition::Unmounted)
            PLINTH_FUZZ_CHECK(partition.mountPath().isEmpty());
        else
            PLINTH_FUZZ_CHECK(std::any_of(mounts.cbegin(), mounts.cend(), [&](const MountEntry &entry) {
                return entry.target == partition.mountPath();
            }));
    }
    return 0;
}
