// SPDX-License-Identifier: BSD-3-Clause
#include "partitionjoin.h"

#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <algorithm>
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

// A mount and the device node its source names, links resolved.
struct VisibleMount
{
    const MountEntry *entry;
    QString deviceNode;
};

// Only device nodes can be links to one; a link that cannot be resolved
// stands for itself.
QString deviceNodeOf(const MountEntry &entry, const PartitionJoin::SourceResolver &canonical)
{
    if (!entry.source.startsWith(QLatin1String("/dev/")))
        return entry.source;
    const QString resolved = canonical(entry.source);
    return resolved.isEmpty() ? entry.source : resolved;
}

bool mountsDevice(const VisibleMount &mount, const BlockDevice &device)
{
    // Virtual file systems have major 0; for them only the source name can
    // tell which device they stand for.
    if (major(mount.entry->devno) != 0 && mount.entry->devno == device.devnum)
        return true;
    return !device.devNode.isEmpty() && mount.deviceNode == device.devNode;
}

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

PartitionJoin::Entry unmeasured(PartitionData *data, const MountEntry *mount, qint64 deviceSize)
{
    data->status = Partition::Unmounted;
    data->bytesTotal = data->bytesTotalLimit = deviceSize;
    PartitionJoin::Entry entry;
    entry.data = QExplicitlySharedDataPointer<PartitionData>(data);
    entry.mount = mount;
    return entry;
}

} // namespace

QVector<PartitionJoin::Entry> PartitionJoin::join(const QVector<MountEntry> &mounts,
                                                  const QVector<BlockDevice> &devices,
                                                  const SourceResolver &canonicalSource)
{
    QHash<QString, const MountEntry *> visible;
    for (const MountEntry &entry : mounts)
        visible.insert(entry.target, &entry);
    // Each source is resolved once, not once for every device it is compared with.
    QVector<VisibleMount> visibleMounts;
    for (const MountEntry &entry : mounts) {
        if (visible.value(entry.target) == &entry)
            visibleMounts.append({&entry, deviceNodeOf(entry, canonicalSource)});
    }
    const bool homeHasOwnMount = visible.contains(HomePath);
    QSet<const MountEntry *> claimed;

    QVector<Entry> entries;
    for (const BlockDevice &device : devices) {
        if (!device.isPartition && device.hasPartitionTable)
            continue;
        QVector<const MountEntry *> deviceMounts;
        for (const VisibleMount &mount : visibleMounts) {
            if (mountsDevice(mount, device))
                deviceMounts.append(mount.entry);
        }
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
        for (const MountEntry *entry : deviceMounts)
            claimed.insert(entry);
        entries.append(unmeasured(data, mount, device.sizeBytes));
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) {
        return naturalLess(a.data->deviceName, b.data->deviceName);
    });

    for (const QString &path : {RootPath, HomePath}) {
        const MountEntry *entry = visible.value(path);
        if (!entry || claimed.contains(entry))
            continue;
        auto *data = new PartitionData;
        data->key = QStringLiteral("mount:") + path;
        // A source that merely ends in the name of a listed block device (the
        // mount table and udev disagree about it) must not pass for that
        // device: the longer names cannot collide with a kernel name.
        const auto taken = [&entries](const QString &name) {
            return name.isEmpty() || std::any_of(entries.cbegin(), entries.cend(),
                                                 [&name](const Entry &e) { return e.data->deviceName == name; });
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
        entries.append(unmeasured(data, entry, 0));
    }
    return entries;
}
