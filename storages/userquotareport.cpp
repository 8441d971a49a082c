// SPDX-License-Identifier: BSD-3-Clause
#include "userquotareport.h"

#include "deviceusers.h"
#include "storagemaps.h"
#include "userstoragebreakdown.h"

UserQuotaReport::UserQuotaReport(const UserStorageBreakdown &breakdown)
    : m_breakdown(breakdown)
{
}

QuotaInfoMap UserQuotaReport::collect(uint currentUid, const SpaceFigures &partition) const
{
    const QList<uint> users = currentUid == DeviceUsers::Owner ? DeviceUsers::uids() : QList<uint>{currentUid};
    QuotaInfoMap report;
    SpaceFigures carried = partition;
    for (uint uid : users) {
        // The breakdown asks for the quota and logs a failure, once per user.
        const UserBreakdown breakdown = m_breakdown.measure(uid, carried);
        carried = breakdown.space;
        const std::optional<quint64> softLimit = breakdown.softLimitBlocks;
        UserQuota quota;
        if (!softLimit || *softLimit == 0) {
            quota.limit = carried.total;
            quota.available = carried.available;
        } else {
            const quint64 limit = UserStorageBreakdown::quotaBytes(*softLimit);
            quota.isSet = true;
            quota.limit = limit;
            quota.available = carried.used < limit ? limit - carried.used : 0;
        }
        report.insert(QStringLiteral("%1").arg(uid), StorageMaps::userQuota(quota));
    }
    return report;
}
