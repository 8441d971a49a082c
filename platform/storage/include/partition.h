// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PARTITION_H
#define PLINTHD_PARTITION_H

#include <QExplicitlySharedDataPointer>
#include <QFlags>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

class PartitionData;

// One partition as the partition manager saw it at its last scan: a snapshot,
// never updated in place. The data is shared and immutable, so copies are
// cheap and may be made and read on any thread (storage queries read them on
// pool threads while the main thread takes new snapshots).
//
// Where the values come from (see PartitionManager for which partitions exist):
//   deviceName()      kernel name of the block device ("mmcblk1p1", "sda1");
//                     for a root or /home mount without a block device, the
//                     last component of the mount source ("overlay")
//   deviceLabel()     file system label (udev ID_FS_LABEL_ENC)
//   partitionLabel()  partition table entry name (udev ID_PART_ENTRY_NAME)
//   mountPath()       where it is mounted, empty when it is not
//   filesystemType()  the type found on the device (udev ID_FS_TYPE), else
//                     the type of the mount
//   bytes*()          statvfs() of the mount path when mounted; otherwise the
//                     device size as total and limit, and nothing free
//   drive()           the drive the partition lives on, see DriveKeys below
class Partition
{
public:
    enum StorageType {
        System = 0x1,   // mounted at "/"
        User = 0x2,     // mounted at "/home", or the root when /home has no mount of its own
        Mass = 0x4,     // internal data partition mounted under /media, /mnt or /run/media
        External = 0x8, // on a removable drive: SD card, USB, kernel removable flag
        Any = System | User | Mass | External
    };
    Q_DECLARE_FLAGS(StorageTypes, StorageType)

    enum Status {
        Unmounted = 0,    // the block device exists but is not in the mount table
        Inaccessible = 1, // in the mount table, but statvfs() fails on its mount path
        Mounted = 2
    };

    // Values of drive()[DriveKeys::ConnectionBus].
    enum ConnectionBus {
        SDBus = 0,
        USBBus = 1,
        IEEE1394Bus = 2,
        OtherBus = 3
    };

    Partition();
    Partition(const Partition &other);
    Partition &operator=(const Partition &other);
    ~Partition();

    Status status() const;
    qint64 bytesTotal() const;
    qint64 bytesFree() const;
    qint64 bytesAvailable() const;
    // The total less the blocks that only root may use: what a user can ever fill.
    qint64 bytesTotalLimit() const;

    QString deviceName() const;
    QString deviceLabel() const;
    QString partitionLabel() const;
    QString mountPath() const;
    QString filesystemType() const;
    StorageTypes storageType() const;

    // DriveKeys::Vendor and DriveKeys::Model (strings, trimmed, possibly
    // empty) and DriveKeys::ConnectionBus (int, a ConnectionBus value).
    QVariantMap drive() const;

private:
    friend class PartitionScanner;
    friend class PartitionManager;
    explicit Partition(PartitionData *data);

    QExplicitlySharedDataPointer<const PartitionData> d;
};

// The keys of Partition::drive(), for the scanner that writes the map and the
// storage picture that reads it. Plain character arrays: constant before any
// code runs, whatever the order in which the files' own constants are made.
namespace DriveKeys {
constexpr char Vendor[] = "vendor";
constexpr char Model[] = "model";
constexpr char ConnectionBus[] = "connectionBus";
} // namespace DriveKeys

Q_DECLARE_OPERATORS_FOR_FLAGS(Partition::StorageTypes)
Q_DECLARE_METATYPE(Partition)

#endif // PLINTHD_PARTITION_H
