// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_BLOCKDEVICES_H
#define PLINTHD_BLOCKDEVICES_H

#include "partition.h"

#include <QString>
#include <QVector>

#include <sys/types.h>

// What udev knows about one block device and the drive it belongs to.
struct BlockDevice
{
    QString sysName;          // kernel name: "mmcblk1p1", "sdb"
    QString devNode;          // "/dev/mmcblk1p1"
    dev_t devnum = 0;
    bool isPartition = false; // DEVTYPE "partition"
    bool hasPartitionTable = false;
    qint64 sizeBytes = 0;     // from the "size" attribute (512-byte sectors)
    QString fsType;           // ID_FS_TYPE
    QString fsLabel;          // ID_FS_LABEL_ENC, unescaped
    QString partitionLabel;   // ID_PART_ENTRY_NAME, unescaped
    // Whether udev has finished with the device. Until then the kernel's
    // device is there but its file system type and label are not known yet.
    bool probed = false;

    // The drive: the whole disk the device is (or is a partition of).
    QString driveVendor;
    QString driveModel;
    int connectionBus = Partition::OtherBus;
    bool removable = false;   // removable flag, USB-attached, or an SD card
};

// Lists the kernel's block devices and describes each as udev does, through
// libudev, one fresh udev context per call so that a scan may run on any
// thread.
class BlockDevices
{
public:
    static QVector<BlockDevice> scan();

    // udev escapes unsafe bytes of labels and names as "\xNN".
    static QString unescape(const char *encoded);
};

#endif // PLINTHD_BLOCKDEVICES_H
