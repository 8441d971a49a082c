// SPDX-License-Identifier: BSD-3-Clause
#include "storagekeys.h"

namespace StorageKeys {
const QString DeviceLabel = QStringLiteral("deviceLabel");
const QString Mounted = QStringLiteral("mounted");
const QString CountMountedPartitions = QStringLiteral("countMountedPartitions");
const QString BytesTotal = QStringLiteral("bytesTotal");
const QString BytesAvailable = QStringLiteral("bytesAvailable");
const QString BytesUsed = QStringLiteral("bytesUsed");
const QString PartitionLabel = QStringLiteral("partitionLabel");
const QString DriveName = QStringLiteral("driveName");
const QString DriveType = QStringLiteral("driveType");
const QString PartitionsInfo = QStringLiteral("partitionsInfo");
const QString PartitionName = QStringLiteral("partitionName");
const QString MountPoint = QStringLiteral("mountPoint");
const QString ExternalStorageLabel = QStringLiteral("external storage");
} // namespace StorageKeys
