// SPDX-License-Identifier: BSD-3-Clause
#include "partitionscanner.h"

#include "filesystemprobe.h"
#include "partition_p.h"
#include "partitionjoin.h"
#include "widefiletypes.h"

#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace {

// A link (/dev/disk/by-uuid/...) resolved to the device node it points at;
// empty when it cannot be.
QString canonicalSource(const QString &source)
{
    return QFileInfo(source).canonicalFilePath();
}

// Measures the file system at a mount path, checking before and after that
// the path still shows the mounted file system: between reading the table and
// looking at the path the mount may have gone, and the path would then show
// the file system beneath it. What cannot be measured keeps the device's size
// the join gave it.
void measureAt(PartitionData &data, const MountEntry &mount)
{
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

} // namespace

PartitionScanner::Layout PartitionScanner::layout(const QString &mountTablePath)
{
    return layout(MountTable::read(mountTablePath), BlockDevices::scan());
}

PartitionScanner::Layout PartitionScanner::layout(const QVector<MountEntry> &mounts,
                                                  const QVector<BlockDevice> &devices)
{
    Layout layout;
    for (const PartitionJoin::Entry &entry : PartitionJoin::join(mounts, devices, canonicalSource)) {
        LayoutEntry item;
        item.data = QExplicitlySharedDataPointer<const PartitionData>(entry.data.data());
        if (entry.mount)
            item.mount = *entry.mount;
        layout.append(item);
    }
    return layout;
}

// Each partition gets data of its own: what the layout holds is shared with
// every scan that uses it and is never written to.
QVector<Partition> PartitionScanner::measure(const Layout &layout)
{
    QVector<Partition> partitions;
    partitions.reserve(layout.size());
    for (const LayoutEntry &entry : layout) {
        auto *data = new PartitionData(*entry.data);
        if (entry.mount)
            measureAt(*data, *entry.mount);
        partitions.append(Partition(data));
    }
    return partitions;
}

QVector<Partition> PartitionScanner::build(const QVector<MountEntry> &mounts, const QVector<BlockDevice> &devices)
{
    return measure(layout(mounts, devices));
}
