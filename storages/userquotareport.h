// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_USERQUOTAREPORT_H
#define PLINTHD_USERQUOTAREPORT_H

#include "dbustypes.h"

class UserStorageBreakdown;

// The quota figures of the current user, or of every user of the device when
// the current user is its owner: whether a soft limit is set, the limit and
// what remains of it; without a limit, the user's share of the partition.
class UserQuotaReport
{
public:
    explicit UserQuotaReport(const UserStorageBreakdown &breakdown);

    // `summary` holds the user-partition summary. Every user's breakdown is
    // made on this same map, so each starts from the used, total and available
    // figures the previous user's left in it; clients rely on that order.
    QuotaInfoMap collect(uint currentUid, QVariantMap &summary) const;

private:
    const UserStorageBreakdown &m_breakdown;
};

#endif // PLINTHD_USERQUOTAREPORT_H
