// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PARTITIONSCANNER_H
#define PLINTHD_PARTITIONSCANNER_H

#include "blockdevices.h"
#include "mounttable.h"
#include "partition.h"

#include <QVector>

// Joins the mount table and the block devices into the partitions the storage
// code cares about, and measures the mounted ones. Only partitions with at
// least one storage type are listed; see PartitionManager for the rules.
class PartitionScanner
{
public:
    static QVector<Partition> scan(const QString &mountTablePath);
    static QVector<Partition> build(const QVector<MountEntry> &mounts, const QVector<BlockDevice> &devices);
};

#endif // PLINTHD_PARTITIONSCANNER_H
