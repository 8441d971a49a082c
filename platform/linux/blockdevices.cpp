// SPDX-License-Identifier: BSD-3-Clause
#include "blockdevices.h"

#include "platformlogging.h"
#include "sourcelock.h"

#include <libudev.h>

#include <limits>
#include <memory>

namespace {

// The kernel's "size" attribute counts 512-byte sectors, whatever the
// device's own logical block size.
const qint64 SizeSectorBytes = 512;

struct UdevDeleter
{
    void operator()(udev *context) const { udev_unref(context); }
};
struct EnumerateDeleter
{
    void operator()(udev_enumerate *enumerate) const { udev_enumerate_unref(enumerate); }
};
struct DeviceDeleter
{
    void operator()(udev_device *device) const { udev_device_unref(device); }
};
using DevicePtr = std::unique_ptr<udev_device, DeviceDeleter>;

QByteArray property(udev_device *device, const char *name)
{
    return QByteArray(udev_device_get_property_value(device, name));
}

QByteArray attribute(udev_device *device, const char *name)
{
    return QByteArray(udev_device_get_sysattr_value(device, name)).trimmed();
}

// Prefers the escaped form, which keeps blanks and non-ASCII bytes that the
// plain property replaces with underscores.
QString encodedOrPlain(udev_device *device, const char *encodedName, const char *plainName)
{
    const char *encoded = udev_device_get_property_value(device, encodedName);
    if (encoded && *encoded)
        return BlockDevices::unescape(encoded).trimmed();
    return QString::fromUtf8(property(device, plainName)).trimmed();
}

// MBR extended partitions only hold the logical ones; nothing can be mounted
// from them.
bool isExtendedContainer(udev_device *device)
{
    const QByteArray type = property(device, "ID_PART_ENTRY_TYPE").toLower();
    return type == "0x5" || type == "0xf" || type == "0x85";
}

void describeDrive(udev_device *disk, BlockDevice &out)
{
    out.driveVendor = encodedOrPlain(disk, "ID_VENDOR_ENC", "ID_VENDOR");
    out.driveModel = encodedOrPlain(disk, "ID_MODEL_ENC", "ID_MODEL");
    if (out.driveVendor.isEmpty())
        out.driveVendor = QString::fromUtf8(attribute(disk, "device/vendor"));
    if (out.driveModel.isEmpty())
        out.driveModel = QString::fromUtf8(attribute(disk, "device/model"));

    bool sdCard = false;
    int bus = Partition::OtherBus;
    // The first bus found walking up from the disk is the one it hangs on:
    // a card reader on USB is a USB drive.
    for (udev_device *ancestor = udev_device_get_parent(disk); ancestor;
         ancestor = udev_device_get_parent(ancestor)) {
        const QByteArray subsystem(udev_device_get_subsystem(ancestor));
        if (subsystem == "mmc") {
            bus = Partition::SDBus;
            sdCard = attribute(ancestor, "type") == "SD";
            if (out.driveModel.isEmpty())
                out.driveModel = QString::fromUtf8(attribute(ancestor, "name"));
            break;
        }
        if (subsystem == "usb") {
            bus = Partition::USBBus;
            break;
        }
        if (subsystem == "firewire" || subsystem == "ieee1394") {
            bus = Partition::IEEE1394Bus;
            break;
        }
    }
    if (bus == Partition::OtherBus) {
        const QByteArray idBus = property(disk, "ID_BUS");
        if (idBus == "usb")
            bus = Partition::USBBus;
        else if (idBus == "ieee1394")
            bus = Partition::IEEE1394Bus;
    }
    out.connectionBus = bus;
    out.removable = attribute(disk, "removable") == "1" || bus == Partition::USBBus || sdCard;
}

} // namespace

QString BlockDevices::unescape(const char *encoded)
{
    QByteArray raw;
    const QByteArray in(encoded);
    raw.reserve(in.size());
    for (int i = 0; i < in.size(); ++i) {
        if (in.at(i) == '\\' && i + 3 < in.size() && in.at(i + 1) == 'x') {
            bool ok = false;
            const int value = in.mid(i + 2, 2).toInt(&ok, 16);
            if (ok) {
                raw.append(char(value));
                i += 3;
                continue;
            }
        }
        raw.append(in.at(i));
    }
    return QString::fromUtf8(raw);
}

QVector<BlockDevice> BlockDevices::scan()
{
    QVector<BlockDevice> devices;
    QMutexLocker locker(&partitionSourceLock());
    std::unique_ptr<udev, UdevDeleter> context(udev_new());
    if (!context) {
        qCWarning(lcPartitions) << "Can't create a udev context";
        return devices;
    }
    std::unique_ptr<udev_enumerate, EnumerateDeleter> enumerate(udev_enumerate_new(context.get()));
    if (!enumerate)
        return devices;
    udev_enumerate_add_match_subsystem(enumerate.get(), "block");
    if (udev_enumerate_scan_devices(enumerate.get()) < 0) {
        qCWarning(lcPartitions) << "Can't list the block devices";
        return devices;
    }

    udev_list_entry *entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate.get())) {
        DevicePtr device(udev_device_new_from_syspath(context.get(), udev_list_entry_get_name(entry)));
        if (!device)
            continue;
        BlockDevice out;
        out.sysName = QString::fromLocal8Bit(udev_device_get_sysname(device.get()));
        out.devNode = QString::fromLocal8Bit(udev_device_get_devnode(device.get()));
        out.devnum = udev_device_get_devnum(device.get());
        out.isPartition = qstrcmp(udev_device_get_devtype(device.get()), "partition") == 0;
        if (out.isPartition && isExtendedContainer(device.get()))
            continue;
        out.hasPartitionTable = !property(device.get(), "ID_PART_TABLE_TYPE").isEmpty();
        bool sizeOk = false;
        const qint64 sectors = attribute(device.get(), "size").toLongLong(&sizeOk);
        out.sizeBytes = sizeOk && sectors > 0 && sectors <= std::numeric_limits<qint64>::max() / SizeSectorBytes
                ? sectors * SizeSectorBytes : 0;
        out.fsType = QString::fromUtf8(property(device.get(), "ID_FS_TYPE"));
        out.fsLabel = encodedOrPlain(device.get(), "ID_FS_LABEL_ENC", "ID_FS_LABEL");
        out.partitionLabel = unescape(udev_device_get_property_value(device.get(), "ID_PART_ENTRY_NAME"));
        // udev records when it finished with a device; recordings of devices
        // carry that property without a udev database behind them.
        out.probed = udev_device_get_is_initialized(device.get()) > 0
                || !property(device.get(), "USEC_INITIALIZED").isEmpty();

        // The parent belongs to the child and must not be unreferenced.
        udev_device *disk = out.isPartition
                ? udev_device_get_parent_with_subsystem_devtype(device.get(), "block", "disk")
                : device.get();
        if (disk)
            describeDrive(disk, out);
        devices.append(out);
    }
    return devices;
}
