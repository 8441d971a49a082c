// SPDX-License-Identifier: BSD-3-Clause
#include "kernelquotasource.h"
#include "widefiletypes.h"

#include "testhold.h"

#include <sys/quota.h>

std::optional<quint64> KernelQuotaSource::userBlockSoftLimit(const QByteArray &device, uint uid) const
{
    TestHold::waitFor("PLINTHD_TEST_HOLD_QUOTA");
    struct if_dqblk quota = {};
    // QCMD(Q_GETQUOTA, USRQUOTA), written out rather than as its command word:
    // the user quota of one account. Only the soft block limit is of interest.
    if (::quotactl(QCMD(Q_GETQUOTA, USRQUOTA), device.constData(), int(uid),
                   reinterpret_cast<caddr_t>(&quota)) == -1)
        return std::nullopt;
    return quint64(quota.dqb_bsoftlimit);
}
