// SPDX-License-Identifier: BSD-3-Clause
#include "externaldrives.h"

#include <mapkeys.h>
#include <partitionmanager.h>

using namespace Plinth;

namespace {

QString driveType(int connectionBus)
{
    switch (connectionBus) {
    case Partition::SDBus:
        return QLatin1String(DriveTypes::SD);
    case Partition::USBBus:
        return QLatin1String(DriveTypes::USB);
    case Partition::IEEE1394Bus:
        return QLatin1String(DriveTypes::IEEE1394);
    default:
        return QLatin1String(DriveTypes::Unknown);
    }
}

} // namespace

ExternalDrives::ExternalDrives(PartitionManager *partitionManager, QObject *parent)
    : QObject(parent), partitionManager(partitionManager)
{
    connect(partitionManager, &PartitionManager::partitionAdded, this, &ExternalDrives::partitionAdded);
    connect(partitionManager, &PartitionManager::storageAdded, this, &ExternalDrives::storageAdded);
    connect(partitionManager, &PartitionManager::partitionRemoved, this, &ExternalDrives::partitionRemoved);
}

QVariantMap ExternalDrives::summary()
{
    return rebuild().summary;
}

QVariantMapList ExternalDrives::drives()
{
    return rebuild().drives.values();
}

// The cut is always two characters, whatever the naming scheme: sda1 and sda2
// share the key "sd" with every other sd disk. Clients know drives by these
// keys, so the cut stays as it is.
QString ExternalDrives::driveKey(const QString &deviceName)
{
    return deviceName.left(deviceName.length() - 2);
}

ExternalDrives::Picture ExternalDrives::buildPicture(const QVector<Partition> &partitions)
{
    Picture picture;
    QMap<QString, QVector<Partition>> partitionsByDrive;
    for (const Partition &partition : partitions)
        partitionsByDrive[driveKey(partition.deviceName())].append(partition);

    quint32 mountedCount = 0;
    quint64 total = 0;
    quint64 free = 0;
    quint64 available = 0;
    picture.summary.insert(QLatin1String(Keys::DeviceLabel), QStringLiteral("external storage"));
    for (const Partition &part : partitions) {
        if (part.status() != Partition::Mounted)
            continue;
        ++mountedCount;
        total += quint64(part.bytesTotal());
        free += quint64(part.bytesFree());
        available += quint64(part.bytesAvailable());
    }
    picture.summary.insert(QLatin1String(Keys::Mounted), mountedCount > 0);
    picture.summary.insert(QLatin1String(Keys::CountMountedPartitions), mountedCount);
    picture.summary.insert(QLatin1String(Keys::BytesTotal), qulonglong(total));
    picture.summary.insert(QLatin1String(Keys::BytesAvailable), qulonglong(available));
    picture.summary.insert(QLatin1String(Keys::BytesUsed), qulonglong(total - free));

    for (auto it = partitionsByDrive.cbegin(); it != partitionsByDrive.cend(); ++it) {
        QVariantMap drive;
        QVariantMapList partitionsInfo;
        // Every partition names the drive again; the last one's name and type
        // stand.
        for (const Partition &part : it.value()) {
            const QVariantMap partDrive = part.drive();
            const QString driveName = QString(partDrive.value(QLatin1String(DriveKeys::Vendor)).toString()
                                              + QLatin1Char(' ')
                                              + partDrive.value(QLatin1String(DriveKeys::Model)).toString())
                                              .trimmed();
            drive.insert(QLatin1String(Keys::DriveName), driveName);
            const int connectionBus = partDrive.value(QLatin1String(DriveKeys::ConnectionBus)).toInt();
            drive.insert(QLatin1String(Keys::DriveType), driveType(connectionBus));

            const qint64 partTotal = part.bytesTotal();
            partitionsInfo.append({
                {QLatin1String(Keys::PartitionName), part.deviceLabel()},
                {QLatin1String(Keys::MountPoint), part.mountPath()},
                {QLatin1String(Keys::PartitionLabel), part.partitionLabel()},
                {QLatin1String(Keys::DriveName), driveName},
                {QLatin1String(Keys::BytesTotal), partTotal},
                {QLatin1String(Keys::BytesUsed), partTotal - part.bytesFree()},
                {QLatin1String(Keys::BytesAvailable), part.bytesAvailable()},
            });
        }
        drive.insert(QLatin1String(Keys::PartitionsInfo), QVariant::fromValue(partitionsInfo));
        picture.drives.insert(it.key(), drive);
    }
    return picture;
}

ExternalDrives::Picture ExternalDrives::rebuild()
{
    return buildPicture(partitionManager->partitions(Partition::External));
}

// Announces the picture together with the drive of the changed partition. A
// drive that has gone is announced with an empty map: that empty map is how
// clients learn that a drive was removed.
void ExternalDrives::announce(const Picture &picture, const Partition &changed)
{
    emit externalStorageChanged(picture.summary);
    emit externalDriveChanged(picture.drives.value(driveKey(changed.deviceName())));
}

void ExternalDrives::partitionAdded(const Partition &partition)
{
    if (!(partition.storageType() & Partition::External))
        return;
    announce(rebuild(), partition);
}

// The storage type is not looked at here, and a size equal to the last one
// seen is taken for the same storage announced again: both on purpose, the
// clients' view of when a card "arrived" depends on it.
void ExternalDrives::storageAdded(const Partition &partition)
{
    if (partition.bytesTotal() == externalTotalBytes)
        return;
    externalTotalBytes = partition.bytesTotal();
    announce(rebuild(), partition);
}

// After the last external partition has gone, the summary announced is an
// empty map, whereas a query in that state answers the full summary with
// nothing mounted. Clients tell "all removed" from "nothing mounted" by it.
void ExternalDrives::partitionRemoved(const Partition &partition)
{
    const QVector<Partition> external = partitionManager->partitions(Partition::External);
    if (external.isEmpty()) {
        externalTotalBytes = 0;
        announce(Picture(), partition);
        return;
    }
    announce(buildPicture(external), partition);
}
