// SPDX-License-Identifier: BSD-3-Clause
#include "storagesinfo.h"

#include "deviceusers.h"
#include "externaldrives.h"
#include "foldersizes.h"
#include "folderwatches.h"
#include "kernelquotasource.h"
#include "logging.h"
#include "packagesizes.h"
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

} // namespace

StoragesInfo::StoragesInfo(QObject *parent)
    : QObject(parent),
      quotaSource(std::make_unique<KernelQuotaSource>()),
      folderWatches(std::make_unique<FolderWatches>(FolderWatches::maxWatchesFromEnvironment())),
      folderSizes(std::make_unique<FolderSizes>(*folderWatches)),
      packageSizes(std::make_unique<PackageSizes>(*folderWatches))
{
    // Asked from the main thread only, before a query that needs the user
    // goes to a worker.
    userManager = new UserManagerClient(this);
    // Refreshed once more although our platform's manager scans as it is
    // made: the picture must be current here whichever platform build the
    // manager comes from, and that repeat costs the start a few statvfs().
    partitionManager = new PartitionManager(this);
    partitionManager->refresh();
    externalDrives = new ExternalDrives(partitionManager, this);
    connect(externalDrives, &ExternalDrives::externalStorageChanged, this, &StoragesInfo::externalStorageChanged);
    connect(externalDrives, &ExternalDrives::externalDriveChanged, this, &StoragesInfo::externalDriveChanged);
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
    return externalDrives->summary();
}

QVariantMapList StoragesInfo::getExternalStorageDrivesInfo()
{
    QMutexLocker locker(&mutex);
    partitionManager->refresh();
    return externalDrives->drives();
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
        StorageMaps::addUserBreakdown(result,
                                      UserStorageBreakdown(*quotaSource, *folderSizes).measure(uid, summary.space));
    return result;
}

QVariantMap StoragesInfo::getSystemStorageInfo()
{
    return SystemStorageCategories(*folderSizes, *packageSizes).measure();
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
    const UserStorageBreakdown breakdown(*quotaSource, *folderSizes);
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
            summary.label = QStringLiteral("internal memory");
        } else {
            total += partition.bytesTotalLimit();
            available += partition.bytesAvailable();
            summary.label = QStringLiteral("%1 partition").arg(currentUserName(user));
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
