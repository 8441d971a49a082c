// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_QUOTASOURCE_H
#define PLINTHD_QUOTASOURCE_H

#include <QByteArray>

#include <optional>

// The one question the storage figures put to the kernel about disk quotas.
// The kernels of the test machines have no quota support at all, so tests
// answer it through a fake of their own.
class QuotaSource
{
public:
    virtual ~QuotaSource() = default;

    // The user's block soft limit on the block device, in 1 KiB blocks (0: no
    // limit set); nothing when the kernel does not answer.
    virtual std::optional<quint64> userBlockSoftLimit(const QByteArray &device, uint uid) const = 0;
};

#endif // PLINTHD_QUOTASOURCE_H
