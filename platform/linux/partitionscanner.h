// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PARTITIONSCANNER_H
#define PLINTHD_PARTITIONSCANNER_H

#include "blockdevices.h"
#include "mounttable.h"
#include "partition.h"

#include <QVector>

// The partitions the storage code cares about, measured: the mount table and
// the block devices joined by PartitionJoin's rules, then the file system of
// every mounted one asked for its figures (FileSystemProbe). This is the side
// that makes system calls, and so the one that waits on a slow medium; see
// PartitionManager for when and on which thread it runs.
class PartitionScanner
{
public:
    // Reads the mount table at `mountTablePath` and udev's block devices.
    static QVector<Partition> scan(const QString &mountTablePath);
    static QVector<Partition> build(const QVector<MountEntry> &mounts, const QVector<BlockDevice> &devices);
};

#endif // PLINTHD_PARTITIONSCANNER_H
