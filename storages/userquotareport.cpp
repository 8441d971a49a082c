// SPDX-License-Identifier: LicenseRef-plinthd
#include "userquotareport.h"

#include "deviceusers.h"
#include "figurekeys.h"
#include "quotasource.h"
#include "storagekeys.h"
#include "userstoragebreakdown.h"

UserQuotaReport::UserQuotaReport(const QuotaSource &quotas, const UserStorageBreakdown &breakdown)
    : m_quotas(quotas), m_breakdown(breakdown)
{
}

QuotaInfoMap UserQuotaReport::collect(uint currentUid, QVariantMap &summary) const
{
    const QList<uint> users = currentUid == DeviceUsers::Owner ? DeviceUsers::uids() : QList<uint>{currentUid};
    QuotaInfoMap report;
    for (uint uid : users) {
        QVariantMap quota;
        // A failure is logged once per user by the breakdown, not here.
        const std::optional<quint64> softLimit = m_quotas.userBlockSoftLimit(UserStorageBreakdown::homeDevice(), uid);
        m_breakdown.fill(uid, summary);
        if (!softLimit || *softLimit == 0) {
            quota[FigureKeys::QuotaIsSet] = false;
            quota[FigureKeys::QuotaLimit] = summary[StorageKeys::BytesTotal];
            quota[FigureKeys::QuotaAvailable] = summary[StorageKeys::BytesAvailable];
        } else {
            const quint64 used = summary[StorageKeys::BytesUsed].toULongLong();
            const quint64 limit = *softLimit << 10;
            quota[FigureKeys::QuotaIsSet] = true;
            quota[FigureKeys::QuotaLimit] = qulonglong(limit);
            quota[FigureKeys::QuotaAvailable] = qulonglong(used < limit ? limit - used : 0);
        }
        report.insert(QStringLiteral("%1").arg(uid), quota);
    }
    return report;
}
