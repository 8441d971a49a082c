// SPDX-License-Identifier: BSD-3-Clause
#include "blockdevices.h"

#include "sourcelock.h"
#include "storagelogging.h"

#include <QHash>

#include <libudev.h>

#include <dirent.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

namespace {

// The kernel's "size" attribute counts 512-byte sectors, whatever the
// device's own logical block size.
const qint64 SizeSectorBytes = 512;

// Devices the kernel makes on its own (loop, device-mapper, zram, md) hang
// under this folder and on no bus: libudev would look for a parent in each
// folder above them, and find none.
const QByteArray VirtualDevicesPath = QByteArrayLiteral("/devices/virtual/");

struct UdevDeleter
{
    void operator()(udev *context) const { udev_unref(context); }
};
struct DeviceDeleter
{
    void operator()(udev_device *device) const { udev_device_unref(device); }
};
using DevicePtr = std::unique_ptr<udev_device, DeviceDeleter>;

QByteArray attribute(udev_device *device, const char *name)
{
    return QByteArray(udev_device_get_sysattr_value(device, name)).trimmed();
}

// What udev knows of one device, read once. A device udev has finished with
// has a database, which libudev reads at the first question and keeps. One
// without (udev has not got to it yet, or no udev runs here) has only the
// kernel's uevent file, in whose lines recordings of devices carry udev's
// properties too; libudev would look for the missing database again at every
// question, so that file is read once here and answers them all.
class DeviceProperties
{
public:
    explicit DeviceProperties(udev_device *device)
        : m_device(device)
        , m_initialized(udev_device_get_is_initialized(device) > 0)
    {
        if (m_initialized)
            return;
        const QList<QByteArray> lines = QByteArray(udev_device_get_sysattr_value(device, "uevent")).split('\n');
        for (const QByteArray &line : lines) {
            const int equals = line.indexOf('=');
            if (equals > 0)
                m_uevent.insert(line.left(equals), line.mid(equals + 1));
        }
    }

    QByteArray value(const char *name) const
    {
        if (m_initialized)
            return QByteArray(udev_device_get_property_value(m_device, name));
        return m_uevent.value(QByteArray::fromRawData(name, int(qstrlen(name))));
    }

    // Whether udev has finished with the device. Recordings of devices carry
    // the property that says so without a udev database behind them.
    bool initialized() const { return m_initialized || !value("USEC_INITIALIZED").isEmpty(); }

private:
    udev_device *const m_device;
    const bool m_initialized;
    QHash<QByteArray, QByteArray> m_uevent;
};

// Prefers the escaped form, which keeps blanks and non-ASCII bytes that the
// plain property replaces with underscores.
QString encodedOrPlain(const DeviceProperties &properties, const char *encodedName, const char *plainName)
{
    const QByteArray encoded = properties.value(encodedName);
    if (!encoded.isEmpty())
        return BlockDevices::unescape(encoded.constData()).trimmed();
    return QString::fromUtf8(properties.value(plainName)).trimmed();
}

// MBR extended partitions only hold the logical ones; nothing can be mounted
// from them.
bool isExtendedContainer(const DeviceProperties &properties)
{
    const QByteArray type = properties.value("ID_PART_ENTRY_TYPE").toLower();
    return type == "0x5" || type == "0xf" || type == "0x85";
}

// The drive a disk is, as its partitions describe it.
struct Drive
{
    QString vendor;
    QString model;
    int connectionBus = Partition::OtherBus;
    bool removable = false;
};

Drive describeDrive(udev_device *disk, const DeviceProperties &properties)
{
    Drive out;
    out.vendor = encodedOrPlain(properties, "ID_VENDOR_ENC", "ID_VENDOR");
    out.model = encodedOrPlain(properties, "ID_MODEL_ENC", "ID_MODEL");
    if (out.vendor.isEmpty())
        out.vendor = QString::fromUtf8(attribute(disk, "device/vendor"));
    if (out.model.isEmpty())
        out.model = QString::fromUtf8(attribute(disk, "device/model"));

    bool sdCard = false;
    int bus = Partition::OtherBus;
    // The first bus found walking up from the disk is the one it hangs on:
    // a card reader on USB is a USB drive.
    const bool virtualDevice = QByteArray(udev_device_get_devpath(disk)).startsWith(VirtualDevicesPath);
    for (udev_device *ancestor = virtualDevice ? nullptr : udev_device_get_parent(disk); ancestor;
         ancestor = udev_device_get_parent(ancestor)) {
        const QByteArray subsystem(udev_device_get_subsystem(ancestor));
        if (subsystem == "mmc") {
            bus = Partition::SDBus;
            sdCard = attribute(ancestor, "type") == "SD";
            if (out.model.isEmpty())
                out.model = QString::fromUtf8(attribute(ancestor, "name"));
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
        const QByteArray idBus = properties.value("ID_BUS");
        if (idBus == "usb")
            bus = Partition::USBBus;
        else if (idBus == "ieee1394")
            bus = Partition::IEEE1394Bus;
    }
    out.connectionBus = bus;
    out.removable = attribute(disk, "removable") == "1" || bus == Partition::USBBus || sdCard;
    return out;
}

// Every block device of the kernel, disks and partitions, as a link to its
// folder. Listed here rather than through udev's enumeration, which makes
// each device and looks above it for parents before handing back only its
// path, to be made again.
const char *const ClassBlockPath = "/sys/class/block";

std::vector<QByteArray> blockDeviceNames()
{
    std::vector<QByteArray> names;
    DIR *dir = ::opendir(ClassBlockPath);
    if (!dir) {
        qCWarning(lcPartitions) << "Can't list the block devices";
        return names;
    }
    while (const dirent *entry = ::readdir(dir)) {
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

// The folder above a sysfs path: a partition's is its disk's.
QByteArray parentPath(const char *syspath)
{
    const QByteArray path(syspath);
    return path.left(path.lastIndexOf('/'));
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

// Each device is made once and asked each question once; a disk is described
// once for all its partitions.
QVector<BlockDevice> BlockDevices::scan()
{
    QVector<BlockDevice> devices;
    QMutexLocker locker(&partitionSourceLock());
    std::unique_ptr<udev, UdevDeleter> context(udev_new());
    if (!context) {
        qCWarning(lcPartitions) << "Can't create a udev context";
        return devices;
    }
    std::vector<DevicePtr> listed;
    std::vector<std::unique_ptr<DeviceProperties>> properties;
    QHash<QByteArray, int> bySyspath;
    for (const QByteArray &name : blockDeviceNames()) {
        const QByteArray link = QByteArray(ClassBlockPath) + '/' + name;
        DevicePtr device(udev_device_new_from_syspath(context.get(), link.constData()));
        if (!device)
            continue;
        bySyspath.insert(QByteArray(udev_device_get_syspath(device.get())), int(listed.size()));
        properties.push_back(std::make_unique<DeviceProperties>(device.get()));
        listed.push_back(std::move(device));
    }

    QHash<udev_device *, Drive> drives;
    // A disk that was not listed itself (it went between the listing and
    // now): its properties live as long as the scan, like the listed ones'.
    std::vector<std::unique_ptr<DeviceProperties>> unlisted;
    const auto driveOf = [&](udev_device *disk, const DeviceProperties &diskProperties) {
        auto found = drives.constFind(disk);
        if (found == drives.constEnd())
            found = drives.insert(disk, describeDrive(disk, diskProperties));
        return found.value();
    };

    for (std::size_t i = 0; i < listed.size(); ++i) {
        udev_device *device = listed[i].get();
        const DeviceProperties &props = *properties[i];
        BlockDevice out;
        out.sysName = QString::fromLocal8Bit(udev_device_get_sysname(device));
        out.devNode = QString::fromLocal8Bit(udev_device_get_devnode(device));
        out.devnum = udev_device_get_devnum(device);
        out.isPartition = qstrcmp(udev_device_get_devtype(device), "partition") == 0;
        if (out.isPartition && isExtendedContainer(props))
            continue;
        out.hasPartitionTable = !props.value("ID_PART_TABLE_TYPE").isEmpty();
        bool sizeOk = false;
        const qint64 sectors = attribute(device, "size").toLongLong(&sizeOk);
        out.sizeBytes = sizeOk && sectors > 0 && sectors <= std::numeric_limits<qint64>::max() / SizeSectorBytes
                ? sectors * SizeSectorBytes : 0;
        out.fsType = QString::fromUtf8(props.value("ID_FS_TYPE"));
        out.fsLabel = encodedOrPlain(props, "ID_FS_LABEL_ENC", "ID_FS_LABEL");
        out.partitionLabel = BlockDevices::unescape(props.value("ID_PART_ENTRY_NAME").constData());
        out.probed = props.initialized();

        // A partition's disk is the folder above it, listed too; the parent
        // libudev finds belongs to the child and must not be unreferenced.
        udev_device *disk = device;
        const DeviceProperties *diskProperties = &props;
        if (out.isPartition) {
            const int index = bySyspath.value(parentPath(udev_device_get_syspath(device)), -1);
            if (index >= 0 && qstrcmp(udev_device_get_devtype(listed[index].get()), "disk") == 0) {
                disk = listed[index].get();
                diskProperties = properties[index].get();
            } else {
                disk = udev_device_get_parent_with_subsystem_devtype(device, "block", "disk");
                if (disk) {
                    unlisted.push_back(std::make_unique<DeviceProperties>(disk));
                    diskProperties = unlisted.back().get();
                }
            }
        }
        if (disk) {
            const Drive drive = driveOf(disk, *diskProperties);
            out.driveVendor = drive.vendor;
            out.driveModel = drive.model;
            out.connectionBus = drive.connectionBus;
            out.removable = drive.removable;
        }
        devices.append(out);
    }
    return devices;
}
