// SPDX-License-Identifier: BSD-3-Clause
#include "storagemaps.h"

#include "figurekeys.h"
#include "storagekeys.h"

namespace {

void insertSpace(QVariantMap &map, const SpaceFigures &space)
{
    map[StorageKeys::BytesTotal] = qulonglong(space.total);
    map[StorageKeys::BytesUsed] = qulonglong(space.used);
    map[StorageKeys::BytesAvailable] = qulonglong(space.available);
}

} // namespace

namespace StorageMaps {

QVariantMap partitionSummary(const PartitionSummary &summary)
{
    QVariantMap map;
    insertSpace(map, summary.space);
    map[FigureKeys::FilesystemType] = summary.filesystemType;
    map[StorageKeys::DeviceLabel] = summary.label;
    return map;
}

void addUserBreakdown(QVariantMap &map, const UserBreakdown &breakdown)
{
    const QStringList &folders = FigureKeys::userFolders();
    for (int i = 0; i < folders.size() && i < breakdown.folderBytes.size(); ++i)
        map[FigureKeys::bytesUsedFor(folders.at(i))] = qulonglong(breakdown.folderBytes.at(i));
    map[FigureKeys::bytesUsedOther()] = qulonglong(breakdown.otherBytes);
    switch (breakdown.otherUsers) {
    case UserBreakdown::OtherUsers::SoleUser:
        map[FigureKeys::bytesUsedOtherUsers()] = qlonglong(0);
        break;
    case UserBreakdown::OtherUsers::Held:
        map[FigureKeys::bytesUsedOtherUsers()] = qulonglong(breakdown.otherUsersBytes);
        break;
    case UserBreakdown::OtherUsers::NotTold:
        break;
    }
    insertSpace(map, breakdown.space);
}

QVariantMap userQuota(const UserQuota &quota)
{
    return {
        {FigureKeys::QuotaIsSet, quota.isSet},
        {FigureKeys::QuotaLimit, qulonglong(quota.limit)},
        {FigureKeys::QuotaAvailable, qulonglong(quota.available)},
    };
}

} // namespace StorageMaps
