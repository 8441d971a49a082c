// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PARTITIONJOIN_H
#define PLINTHD_PARTITIONJOIN_H

#include "blockdevices.h"
#include "mounttable.h"
#include "partition_p.h"

#include <QVector>

#include <functional>

// Which partitions the storage code cares about, from the mount table and the
// block devices alone: no file system is asked anything here, so the rules can
// be run on any table (the tests' fixtures, the fuzzer's inputs). Measuring
// the mounted partitions is PartitionScanner's job.
//
// - A disk with a partition table is described by its partitions; a device
//   without a size and without a mount (an empty card reader slot, an unused
//   loop device) is left out.
// - A later mount on the same path hides the earlier ones.
// - The root is System, and User as well unless /home has a mount of its own;
//   /home is User; otherwise a removable device is External, and a device
//   mounted under /media, /mnt or /run/media is Mass. A device with none of
//   these types is not listed.
// - A partition's mount is the root or /home when it has one, else the mount
//   of its whole file system rather than a bind mount of a directory in it.
// - Partitions come in the natural order of their names (sda2 before sda10),
//   then the root and /home when no listed block device backs them (an
//   overlay, a network file system, a container's root).
class PartitionJoin
{
public:
    // One listed partition: its data (figures not measured yet, Unmounted and
    // the device's size until they are) and the mount to measure it at.
    struct Entry
    {
        QExplicitlySharedDataPointer<PartitionData> data;
        const MountEntry *mount = nullptr; // points into the mounts given
    };

    // The canonical name of a mount source: a source may name its device
    // through a link (/dev/disk/by-uuid/...), which only the file system can
    // resolve.
    using SourceResolver = std::function<QString(const QString &source)>;

    static QVector<Entry> join(const QVector<MountEntry> &mounts, const QVector<BlockDevice> &devices,
                               const SourceResolver &canonicalSource);
};

#endif // PLINTHD_PARTITIONJOIN_H
