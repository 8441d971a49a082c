// SPDX-License-Identifier: BSD-3-Clause
#include "partitionscanner.h"

#include "filesystemprobe.h"
#include "partition_p.h"
#include "widefiletypes.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <algorithm>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

namespace {

const QString RootPath = QStringLiteral("/");
const QString HomePath = QStringLiteral("/home");

QVariantMap driveMap(const QString &vendor, const QString &model, int connectionBus)
{
    return {
        {QLatin1String(DriveKeys::Vendor), vendor},
        {QLatin1String(DriveKeys::Model), model},
        {QLatin1String(DriveKeys::ConnectionBus), connectionBus},
    };
}

bool isMassStoragePath(const QString &path)
{
    return path.startsWith(QLatin1String("/media/")) || path.startsWith(QLatin1String("/mnt/"))
            || path.startsWith(QLatin1String("/run/media/"));
}

// A mount source may name the device through a link (/dev/disk/by-uuid/...).
QString canonicalSource(const QString &source)
{
    if (!source.startsWith(QLatin1String("/dev/")))
        return source;
    const QString canonical = QFileInfo(source).canonicalFilePath();
    return canonical.isEmpty() ? source : canonical;
}

bool mountsDevice(const MountEntry &entry, const BlockDevice &device)
{
    // Virtual file systems have major 0; for them only the source name can
    // tell which device they stand for.
    if (major(entry.devno) != 0 && entry.devno == device.devnum)
        return true;
    return !device.devNode.isEmpty() && canonicalSource(entry.source) == device.devNode;
}

// The mount that names a partition: the root or /home first, then the mount
// of the whole file system rather than a bind mount of a directory in it.
const MountEntry *preferredMount(const QVector<const MountEntry *> &mounts)
{
    for (const QString &path : {RootPath, HomePath}) {
        for (const MountEntry *entry : mounts) {
            if (entry->target == path)
                return entry;
        }
    }
    for (const MountEntry *entry : mounts) {
        if (entry->fsRoot == RootPath)
            return entry;
    }
    return mounts.isEmpty() ? nullptr : mounts.first();
}

// Measures the file system at a mount path, checking before and after that
// the path still shows the mounted file system: between reading the table and
// looking at the path the mount may have gone, and the path would then show
// the file system beneath it.
void measure(PartitionData &data, const MountEntry &mount, qint64 deviceSize)
{
    data.bytesTotal = data.bytesTotalLimit = deviceSize;
    const QByteArray path = QFile::encodeName(mount.target);
    const auto onMountedFileSystem = [&path, &mount](bool *reachable) {
        struct stat where = {};
        *reachable = ::stat(path.constData(), &where) == 0;
        return *reachable && where.st_dev == mount.devno;
    };
    bool reachable = false;
    struct statvfs fs = {};
    const bool before = onMountedFileSystem(&reachable);
    if (!reachable) {
        data.mountPath = mount.target;
        data.status = Partition::Inaccessible;
        return;
    }
    const bool measured = before && FileSystemProbe::measure(path, &fs);
    if (!before || !onMountedFileSystem(&reachable)) {
        data.status = Partition::Unmounted;
        return;
    }
    data.mountPath = mount.target;
    if (!measured) {
        data.status = Partition::Inaccessible;
        return;
    }
    const qint64 unit = qint64(fs.f_frsize);
    data.status = Partition::Mounted;
    data.bytesTotal = qint64(fs.f_blocks) * unit;
    data.bytesFree = qint64(fs.f_bfree) * unit;
    data.bytesAvailable = qint64(fs.f_bavail) * unit;
    data.bytesTotalLimit = qint64(fs.f_blocks - (fs.f_bfree - fs.f_bavail)) * unit;
}

// Digit runs compare as numbers, so sda2 comes before sda10.
bool naturalLess(const QString &a, const QString &b)
{
    int i = 0;
    int j = 0;
    while (i < a.size() && j < b.size()) {
        if (a.at(i).isDigit() && b.at(j).isDigit()) {
            int endA = i;
            int endB = j;
            while (endA < a.size() && a.at(endA).isDigit())
                ++endA;
            while (endB < b.size() && b.at(endB).isDigit())
                ++endB;
            const QStringRef numberA = a.midRef(i, endA - i);
            const QStringRef numberB = b.midRef(j, endB - j);
            const int byLength = numberA.size() - numberB.size();
            if (byLength != 0)
                return byLength < 0;
            const int byDigits = numberA.compare(numberB);
            if (byDigits != 0)
                return byDigits < 0;
            i = endA;
            j = endB;
            continue;
        }
        if (a.at(i) != b.at(j))
            return a.at(i) < b.at(j);
        ++i;
        ++j;
    }
    return a.size() - i < b.size() - j;
}

} // namespace

QVector<Partition> PartitionScanner::scan(const QString &mountTablePath)
{
    return build(MountTable::read(mountTablePath), BlockDevices::scan());
}

QVector<Partition> PartitionScanner::build(const QVector<MountEntry> &mounts, const QVector<BlockDevice> &devices)
{
    // A later mount on the same path hides the earlier ones.
    QHash<QString, const MountEntry *> visible;
    for (const MountEntry &entry : mounts)
        visible.insert(entry.target, &entry);
    QVector<const MountEntry *> visibleMounts;
    for (const MountEntry &entry : mounts) {
        if (visible.value(entry.target) == &entry)
            visibleMounts.append(&entry);
    }
    const bool homeHasOwnMount = visible.contains(HomePath);
    QSet<const MountEntry *> claimed;

    QVector<Partition> partitions;
    for (const BlockDevice &device : devices) {
        // A disk with a partition table is described by its partitions.
        if (!device.isPartition && device.hasPartitionTable)
            continue;
        QVector<const MountEntry *> deviceMounts;
        for (const MountEntry *entry : visibleMounts) {
            if (mountsDevice(*entry, device))
                deviceMounts.append(entry);
        }
        // Empty card reader slots and unused loop devices have no size.
        if (deviceMounts.isEmpty() && device.sizeBytes == 0)
            continue;
        const MountEntry *mount = preferredMount(deviceMounts);

        Partition::StorageTypes types;
        for (const MountEntry *entry : deviceMounts) {
            if (entry->target == RootPath)
                types |= homeHasOwnMount ? Partition::System : Partition::System | Partition::User;
            else if (entry->target == HomePath)
                types |= Partition::User;
        }
        if (!types && device.removable)
            types = Partition::External;
        if (!types && mount && isMassStoragePath(mount->target))
            types = Partition::Mass;
        if (!types)
            continue;

        auto *data = new PartitionData;
        data->key = device.sysName;
        data->deviceName = device.sysName;
        data->deviceLabel = device.fsLabel;
        data->partitionLabel = device.partitionLabel;
        data->probed = device.probed;
        data->filesystemType = !device.fsType.isEmpty() || !mount ? device.fsType : mount->fsType;
        data->storageType = types;
        data->drive = driveMap(device.driveVendor, device.driveModel, device.connectionBus);
        if (mount) {
            measure(*data, *mount, device.sizeBytes);
        } else {
            data->status = Partition::Unmounted;
            data->bytesTotal = data->bytesTotalLimit = device.sizeBytes;
        }
        for (const MountEntry *entry : deviceMounts)
            claimed.insert(entry);
        partitions.append(Partition(data));
    }
    std::stable_sort(partitions.begin(), partitions.end(), [](const Partition &a, const Partition &b) {
        return naturalLess(a.deviceName(), b.deviceName());
    });

    // The root and /home are listed even when no block device backs them
    // (an overlay, a network file system, a container's root).
    for (const QString &path : {RootPath, HomePath}) {
        const MountEntry *entry = visible.value(path);
        if (!entry || claimed.contains(entry))
            continue;
        auto *data = new PartitionData;
        data->key = QStringLiteral("mount:") + path;
        // A source that merely ends in the name of a listed block device (the
        // mount table and udev disagree about it) must not pass for that
        // device: the longer names cannot collide with a kernel name.
        const auto taken = [&partitions](const QString &name) {
            return name.isEmpty() || std::any_of(partitions.cbegin(), partitions.cend(),
                                                 [&name](const Partition &p) { return p.deviceName() == name; });
        };
        data->deviceName = QFileInfo(entry->source).fileName();
        if (taken(data->deviceName))
            data->deviceName = entry->source;
        if (taken(data->deviceName))
            data->deviceName = data->key;
        data->filesystemType = entry->fsType;
        data->storageType = path == HomePath ? Partition::User
                : homeHasOwnMount ? Partition::System : Partition::System | Partition::User;
        data->drive = driveMap(QString(), QString(), Partition::OtherBus);
        measure(*data, *entry, 0);
        partitions.append(Partition(data));
    }
    return partitions;
}
