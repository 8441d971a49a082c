// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_USERQUOTAREPORT_H
#define PLINTHD_USERQUOTAREPORT_H

#include "dbustypes.h"
#include "storagefigures.h"

class UserStorageBreakdown;

// The quota figures of the current user, or of every user of the device when
// the current user is its owner: whether a soft limit is set, the limit and
// what remains of it; without a limit, the user's share of the partition.
class UserQuotaReport
{
public:
    explicit UserQuotaReport(const UserStorageBreakdown &breakdown);

    // `partition` is the space of the user partition. It is carried from one
    // user to the next: each user's breakdown starts from the used, total and
    // available figures the previous user's gave, not from the partition's;
    // clients rely on that order.
    QuotaInfoMap collect(uint currentUid, const SpaceFigures &partition) const;

private:
    const UserStorageBreakdown &m_breakdown;
};

#endif // PLINTHD_USERQUOTAREPORT_H
