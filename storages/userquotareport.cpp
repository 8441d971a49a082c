// SPDX-License-Identifier: BSD-3-Clause
#include "userquotareport.h"

#include "deviceusers.h"
#include "figurekeys.h"
#include "storagekeys.h"
#include "userstoragebreakdown.h"

UserQuotaReport::UserQuotaReport(const UserStorageBreakdown &breakdown)
    : m_breakdown(breakdown)
{
}

QuotaInfoMap UserQuotaReport::collect(uint currentUid, QVariantMap &summary) const
{
    const QList<uint> users = currentUid == DeviceUsers::Owner ? DeviceUsers::uids() : QList<uint>{currentUid};
    QuotaInfoMap report;
    for (uint uid : users) {
        QVariantMap quota;
        // The breakdown asks for the quota and logs a failure, once per user.
        const std::optional<quint64> softLimit = m_breakdown.fill(uid, summary);
        if (!softLimit || *softLimit == 0) {
            quota[FigureKeys::QuotaIsSet] = false;
            quota[FigureKeys::QuotaLimit] = summary[StorageKeys::BytesTotal];
            quota[FigureKeys::QuotaAvailable] = summary[StorageKeys::BytesAvailable];
        } else {
            const quint64 used = summary[StorageKeys::BytesUsed].toULongLong();
            const quint64 limit = UserStorageBreakdown::quotaBytes(*softLimit);
            quota[FigureKeys::QuotaIsSet] = true;
            quota[FigureKeys::QuotaLimit] = qulonglong(limit);
            quota[FigureKeys::QuotaAvailable] = qulonglong(used < limit ? limit - used : 0);
        }
        report.insert(QStringLiteral("%1").arg(uid), quota);
    }
    return report;
}
