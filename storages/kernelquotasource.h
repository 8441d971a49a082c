// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_KERNELQUOTASOURCE_H
#define PLINTHD_KERNELQUOTASOURCE_H

#include "quotasource.h"

// Asks quotactl(Q_GETQUOTA) for the user quota.
class KernelQuotaSource : public QuotaSource
{
public:
    std::optional<quint64> userBlockSoftLimit(const QByteArray &device, uint uid) const override;
};

#endif // PLINTHD_KERNELQUOTASOURCE_H
