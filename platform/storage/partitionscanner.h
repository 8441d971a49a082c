// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PARTITIONSCANNER_H
#define PLINTHD_PARTITIONSCANNER_H

#include "blockdevices.h"
#include "mounttable.h"
#include "partition_p.h"

#include <QVector>

#include <optional>

// The partitions the storage code cares about, measured, in two steps. The
// layout: the mount table and the block devices joined by PartitionJoin's
// rules, which only change with an event (see LayoutCache). The measuring:
// the file system of every mounted partition asked for its figures
// (FileSystemProbe), which change at any time. Both make system calls; the
// measuring is the one that waits on a slow medium. See PartitionManager for
// when and on which thread they run.
class PartitionScanner
{
public:
    // One listed partition before it is measured: its data as the join gave
    // it (Unmounted, the device's size) and the mount to measure it at.
    struct LayoutEntry
    {
        QExplicitlySharedDataPointer<const PartitionData> data;
        std::optional<MountEntry> mount;
    };
    using Layout = QVector<LayoutEntry>;

    // Reads the mount table at `mountTablePath` and udev's block devices.
    static Layout layout(const QString &mountTablePath);
    static Layout layout(const QVector<MountEntry> &mounts, const QVector<BlockDevice> &devices);
    // Every partition of `layout`, the mounted ones with their file system's
    // figures of now.
    static QVector<Partition> measure(const Layout &layout);

    // Both steps at once, on a table and devices given (tests, fuzzing).
    static QVector<Partition> build(const QVector<MountEntry> &mounts, const QVector<BlockDevice> &devices);
};

#endif // PLINTHD_PARTITIONSCANNER_H
