// SPDX-License-Identifier: BSD-3-Clause
#include "storagekeys.h"

#include <partition.h>

namespace StorageKeys {
const QString DeviceLabel = QStringLiteral("deviceLabel");
const QString Mounted = QStringLiteral("mounted");
const QString CountMountedPartitions = QStringLiteral("countMountedPartitions");
const QString BytesTotal = QStringLiteral("bytesTotal");
const QString BytesFree = QStringLiteral("bytesFree");
const QString BytesAvailable = QStringLiteral("bytesAvailable");
const QString BytesUsed = QStringLiteral("bytesUsed");
const QString DeviceName = QStringLiteral("deviceName");
const QString PartitionLabel = QStringLiteral("partitionLabel");
const QString MountPath = QStringLiteral("mountPath");
const QString Drive = QStringLiteral("drive");
const QString Model = QLatin1String(DriveKeys::Model);
const QString Vendor = QLatin1String(DriveKeys::Vendor);
const QString ConnectionBus = QLatin1String(DriveKeys::ConnectionBus);
const QString DriveName = QStringLiteral("driveName");
const QString DriveType = QStringLiteral("driveType");
const QString PartitionsInfo = QStringLiteral("partitionsInfo");
const QString PartitionName = QStringLiteral("partitionName");
const QString MountPoint = QStringLiteral("mountPoint");
const QString ExternalStorageLabel = QStringLiteral("external storage");
} // namespace StorageKeys
