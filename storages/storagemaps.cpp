// SPDX-License-Identifier: BSD-3-Clause
#include "storagemaps.h"

#include <mapkeys.h>

#include <iterator>

using namespace Plinth;

namespace {

void insertSpace(QVariantMap &map, const SpaceFigures &space)
{
    map[QLatin1String(Keys::BytesTotal)] = qulonglong(space.total);
    map[QLatin1String(Keys::BytesUsed)] = qulonglong(space.used);
    map[QLatin1String(Keys::BytesAvailable)] = qulonglong(space.available);
}

} // namespace

namespace StorageMaps {

QVariantMap partitionSummary(const PartitionSummary &summary)
{
    QVariantMap map;
    insertSpace(map, summary.space);
    map[QLatin1String(Keys::FilesystemType)] = summary.filesystemType;
    map[QLatin1String(Keys::DeviceLabel)] = summary.label;
    return map;
}

void addUserBreakdown(QVariantMap &map, const UserBreakdown &breakdown)
{
    const int folders = int(std::size(UserFolders));
    for (int i = 0; i < folders && i < breakdown.folderBytes.size(); ++i)
        map[QLatin1String(UserFolders[i].key)] = qulonglong(breakdown.folderBytes.at(i));
    map[QLatin1String(Keys::BytesUsedOther)] = qulonglong(breakdown.otherBytes);
    switch (breakdown.otherUsers) {
    case UserBreakdown::OtherUsers::SoleUser:
        map[QLatin1String(Keys::BytesUsedOtherUsers)] = qlonglong(0);
        break;
    case UserBreakdown::OtherUsers::Held:
        map[QLatin1String(Keys::BytesUsedOtherUsers)] = qulonglong(breakdown.otherUsersBytes);
        break;
    case UserBreakdown::OtherUsers::NotTold:
        break;
    }
    insertSpace(map, breakdown.space);
}

QVariantMap userQuota(const UserQuota &quota)
{
    return {
        {QLatin1String(Keys::QuotaIsSet), quota.isSet},
        {QLatin1String(Keys::QuotaLimit), qulonglong(quota.limit)},
        {QLatin1String(Keys::QuotaAvailable), qulonglong(quota.available)},
    };
}

} // namespace StorageMaps
