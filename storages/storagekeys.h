// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_STORAGEKEYS_H
#define PLINTHD_STORAGEKEYS_H

#include <QString>

// Keys of the storage maps, made once at start-up and shared by every map the
// Storages queries build.
namespace StorageKeys {
extern const QString DeviceLabel;
extern const QString Mounted;
extern const QString CountMountedPartitions;
extern const QString BytesTotal;
extern const QString BytesAvailable;
extern const QString BytesUsed;
extern const QString PartitionLabel;
extern const QString DriveName;
extern const QString DriveType;
extern const QString PartitionsInfo;
extern const QString PartitionName;
extern const QString MountPoint;
extern const QString ExternalStorageLabel;
} // namespace StorageKeys

#endif // PLINTHD_STORAGEKEYS_H
