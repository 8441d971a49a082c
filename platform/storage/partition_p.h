// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PARTITION_P_H
#define PLINTHD_PARTITION_P_H

#include "partition.h"

#include <QSharedData>

// Filled once by the scanner, then only read.
class PartitionData : public QSharedData
{
public:
    // Identifies the partition across scans: the block device's kernel name,
    // or "mount:" and the mount path for a mount without a block device.
    QString key;
    Partition::Status status = Partition::Unmounted;
    qint64 bytesTotal = 0;
    qint64 bytesFree = 0;
    qint64 bytesAvailable = 0;
    qint64 bytesTotalLimit = 0;
    QString deviceName;
    QString deviceLabel;
    QString partitionLabel;
    QString mountPath;
    QString filesystemType;
    Partition::StorageTypes storageType;
    QVariantMap drive;
    // False while udev is still probing the block device: its label and file
    // system type may yet be missing.
    bool probed = true;
};

#endif // PLINTHD_PARTITION_P_H
