// SPDX-License-Identifier: BSD-3-Clause
#include "storagesinfo.h"

#include "deviceusers.h"
#include "figurekeys.h"
#include "kernelquotasource.h"
#include "logging.h"
#include "storagekeys.h"
#include "storagemaps.h"
#include "systemstoragecategories.h"
#include "userquotareport.h"
#include "userstoragebreakdown.h"
#include "usermanagerclient.h"

#include <QDBusReply>
#include <QStorageInfo>

#include <partitionmanager.h>


namespace {

// The partition selections the summaries are made of. The internal memory is
// every partition of the device's own storage; the user's data lives on the
// user partition and the internal data partitions beside it.
const Partition::StorageTypes InternalMemoryPartitions = Partition::System | Partition::User | Partition::Mass;
const Partition::StorageTypes UserDataPartitions = Partition::User | Partition::Mass;

// Looked up in place of the current user when the user manager cannot say who
// that is: far above the uids accounts are given, so no account holds it and
// the user's name comes out empty.
const uint NoAccountUid = 999999;

QString driveType(int connectionBus)
{
    switch (connectionBus) {
    case Partition::SDBus:
        return QStringLiteral("SD");
    case Partition::USBBus:
        return QStringLiteral("USB");
    case Partition::IEEE1394Bus:
        return QStringLiteral("IEEE1394");
    default:
        return QStringLiteral("Unknown");
    }
}

} // namespace

StoragesInfo::StoragesInfo(QObject *parent)
    : QObject(parent), quotaSource(std::make_unique<KernelQuotaSource>())
{
    // Asked from the main thread only, before a query that needs the user
    // goes to a worker.
    userManager = new UserManagerClient(this);
    partitionManager = new PartitionManager(this);
    partitionManager->refresh();
    connect(partitionManager, &PartitionManager::partitionAdded, this, &StoragesInfo::partitionAdded);
    connect(partitionManager, &PartitionManager::storageAdded, this, &StoragesInfo::storageAdded);
    connect(partitionManager, &PartitionManager::partitionRemoved, this, &StoragesInfo::partitionRemoved);
}

StoragesInfo::~StoragesInfo() = default;

void StoragesInfo::askCurrentUser(const CurrentUserAnswer &answer)
{
    userManager->currentUser([answer](const QDBusMessage &message) {
        // A reply of another type than "u" counts as no answer, like an error.
        const QDBusReply<uint> reply(message);
        CurrentUser user;
        user.known = reply.isValid();
        user.uid = user.known ? reply.value() : 0;
        answer(user);
    });
}

QVariantMap StoragesInfo::getExternalStorageInfo()
{
    QMutexLocker locker(&mutex);
    partitionManager->refresh();
    return rebuild().summary;
}

QVariantMapList StoragesInfo::getExternalStorageDrivesInfo()
{
    QMutexLocker locker(&mutex);
    partitionManager->refresh();
    return rebuild().drives.values();
}

// The cut is always two characters, whatever the naming scheme: sda1 and sda2
// share the key "sd" with every other sd disk. Clients know drives by these
// keys, so the cut stays as it is.
QString StoragesInfo::driveKey(const QString &deviceName)
{
    return deviceName.left(deviceName.length() - 2);
}

StoragesInfo::ExternalPicture StoragesInfo::buildExternalPicture(const QVector<Partition> &partitions)
{
    using namespace StorageKeys;
    ExternalPicture picture;
    for (const Partition &partition : partitions)
        picture.partitionsByDrive[driveKey(partition.deviceName())].append(partition);

    quint32 mountedCount = 0;
    quint64 total = 0;
    quint64 free = 0;
    quint64 available = 0;
    picture.summary.insert(DeviceLabel, ExternalStorageLabel);
    for (const QVector<Partition> &driveParts : qAsConst(picture.partitionsByDrive)) {
        for (const Partition &part : driveParts) {
            if (part.status() != Partition::Mounted)
                continue;
            ++mountedCount;
            total += quint64(part.bytesTotal());
            free += quint64(part.bytesFree());
            available += quint64(part.bytesAvailable());
        }
    }
    picture.summary.insert(Mounted, mountedCount > 0);
    picture.summary.insert(CountMountedPartitions, mountedCount);
    picture.summary.insert(BytesTotal, qulonglong(total));
    picture.summary.insert(BytesAvailable, qulonglong(available));
    picture.summary.insert(BytesUsed, qulonglong(total - free));

    for (auto it = picture.partitionsByDrive.cbegin(); it != picture.partitionsByDrive.cend(); ++it) {
        QVariantMap drive;
        QVariantMapList partitionsInfo;
        // Every partition names the drive again; the last one's name and type
        // stand.
        for (const Partition &part : it.value()) {
            const QVariantMap partDrive = part.drive();
            const QString driveName = QString(partDrive.value(Vendor).toString() + QLatin1Char(' ')
                                              + partDrive.value(Model).toString()).trimmed();
            drive.insert(DriveName, driveName);
            drive.insert(DriveType, driveType(partDrive.value(ConnectionBus).toInt()));

            const qint64 partTotal = part.bytesTotal();
            partitionsInfo.append({
                {PartitionName, part.deviceLabel()},
                {MountPoint, part.mountPath()},
                {PartitionLabel, part.partitionLabel()},
                {DriveName, driveName},
                {BytesTotal, partTotal},
                {BytesUsed, partTotal - part.bytesFree()},
                {BytesAvailable, part.bytesAvailable()},
            });
        }
        drive.insert(PartitionsInfo, QVariant::fromValue(partitionsInfo));
        picture.drives.insert(it.key(), drive);
    }
    return picture;
}

StoragesInfo::ExternalPicture StoragesInfo::rebuild()
{
    const ExternalPicture picture = buildExternalPicture(partitionManager->partitions(Partition::External));
    publish(picture);
    return picture;
}

void StoragesInfo::publish(const ExternalPicture &picture)
{
    QMutexLocker locker(&pictureLock);
    assignPicture(picture);
}

// The maps are implicitly shared: under the lock only pointers are swapped.
void StoragesInfo::assignPicture(const ExternalPicture &picture)
{
    externalStorageInfo = picture.summary;
    partitionsByDrive = picture.partitionsByDrive;
    drives = picture.drives;
}

// Publishes the picture and announces it together with the drive of the
// changed partition. The drive is looked up in the published drives with
// insert-if-missing: a drive that has gone is announced with an empty map,
// which stays in the drive list until the next rebuild. That empty map is how
// clients learn that a drive was removed.
void StoragesInfo::announce(const ExternalPicture &picture, const Partition &changed)
{
    QVariantMap summary;
    QVariantMap drive;
    {
        QMutexLocker locker(&pictureLock);
        assignPicture(picture);
        summary = externalStorageInfo;
        drive = drives[driveKey(changed.deviceName())];
    }
    emit externalStorageChanged(summary);
    emit externalDriveChanged(drive);
}

void StoragesInfo::partitionAdded(const Partition &partition)
{
    if (!(partition.storageType() & Partition::External))
        return;
    announce(buildExternalPicture(partitionManager->partitions(Partition::External)), partition);
}

// The storage type is not looked at here, and a size equal to the last one
// seen is taken for the same storage announced again: both on purpose, the
// clients' view of when a card "arrived" depends on it.
void StoragesInfo::storageAdded(const Partition &partition)
{
    if (partition.bytesTotal() == externalTotalBytes)
        return;
    externalTotalBytes = partition.bytesTotal();
    announce(buildExternalPicture(partitionManager->partitions(Partition::External)), partition);
}

// After the last external partition has gone, the summary announced is an
// empty map, whereas a query in that state answers the full summary with
// nothing mounted. Clients tell "all removed" from "nothing mounted" by it.
void StoragesInfo::partitionRemoved(const Partition &partition)
{
    const QVector<Partition> external = partitionManager->partitions(Partition::External);
    if (external.isEmpty()) {
        externalTotalBytes = 0;
        announce(ExternalPicture(), partition);
        return;
    }
    announce(buildExternalPicture(external), partition);
}

QVariantMap StoragesInfo::getInternalStorageInfo()
{
    QMutexLocker locker(&mutex);
    partitionManager->refresh();
    return StorageMaps::partitionSummary(summarise(Summary::InternalMemory, CurrentUser()));
}

QVariantMap StoragesInfo::getInternalUserPartitionInfo(const CurrentUser &user)
{
    PartitionSummary summary;
    uint uid = 0;
    bool ok = false;
    {
        QMutexLocker locker(&mutex);
        partitionManager->refresh();
        summary = summarise(Summary::UserPartition, user);
        ok = getCurrentUid(user, uid);
    }
    QVariantMap result = StorageMaps::partitionSummary(summary);
    // The walks run unlocked: other queries need not wait for them.
    if (ok)
        StorageMaps::addUserBreakdown(result, UserStorageBreakdown(*quotaSource).measure(uid, summary.space));
    return result;
}

QVariantMap StoragesInfo::getSystemStorageInfo()
{
    return SystemStorageCategories::measure();
}

QuotaInfoMap StoragesInfo::getUsersQuotaInfo(const CurrentUser &user)
{
    PartitionSummary summary;
    uint uid = 0;
    {
        QMutexLocker locker(&mutex);
        partitionManager->refresh();
        summary = summarise(Summary::UserPartition, user);
        if (!getCurrentUid(user, uid))
            return QuotaInfoMap();
    }
    const UserStorageBreakdown breakdown(*quotaSource);
    return UserQuotaReport(breakdown).collect(uid, summary.space);
}

PartitionSummary StoragesInfo::summarise(Summary kind, const CurrentUser &user)
{
    const bool internalMemory = kind == Summary::InternalMemory;
    qint64 total = 0;
    qint64 available = 0;
    PartitionSummary summary;
    for (const Partition &partition :
         partitionManager->partitions(internalMemory ? InternalMemoryPartitions : UserDataPartitions)) {
        if (internalMemory) {
            // The internal memory is measured through the file system of each
            // mount point, the user partition by the platform's own figures.
            QStorageInfo storage;
            storage.setPath(partition.mountPath());
            total += storage.bytesTotal();
            available += storage.bytesAvailable();
            summary.label = FigureKeys::InternalMemoryLabel;
        } else {
            total += partition.bytesTotalLimit();
            available += partition.bytesAvailable();
            summary.label = QStringLiteral("%1 %2").arg(currentUserName(user), FigureKeys::PartitionWord);
        }
        summary.filesystemType = partition.filesystemType();
    }
    summary.space.total = quint64(total);
    summary.space.used = quint64(total - available);
    summary.space.available = quint64(available);
    return summary;
}

// Every place that needs the current user reads the one answer the query
// began with, and warns on its own when there was none, as it would have
// after asking the user manager itself.
bool StoragesInfo::getCurrentUid(const CurrentUser &user, uint &uid)
{
    if (!user.known) {
        qCWarning(lcPlinthd).noquote() << "getCurrentUid" << "Failed to get current user uid.";
        return false;
    }
    uid = user.uid;
    return true;
}

QString StoragesInfo::currentUserName(const CurrentUser &user)
{
    uint uid = NoAccountUid;
    getCurrentUid(user, uid);
    return DeviceUsers::userName(uid);
}
