// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_USERSTORAGEBREAKDOWN_H
#define PLINTHD_USERSTORAGEBREAKDOWN_H

#include <QSet>
#include <QString>
#include <QVariantMap>

#include <optional>

class QuotaSource;

// Splits the user partition for one user: the five folders of the user's
// home, the user's other files under /home, and (for the device owner) what
// the other users hold; then applies the user's quota. The map handed in
// already holds the partition summary; its used, total and available figures
// are replaced by the user's own.
class UserStorageBreakdown
{
public:
    explicit UserStorageBreakdown(const QuotaSource &quotas);

    // Returns the user's block soft limit as the kernel gave it, in 1 KiB
    // blocks: 0 when no limit is set, nothing when the kernel did not answer.
    std::optional<quint64> fill(uint uid, QVariantMap &map) const;

    // A block soft limit in bytes. Shifted as an unsigned 64-bit value, so an
    // absurd limit wraps rather than saturates; only a limit of 0 blocks
    // means "no quota".
    static quint64 quotaBytes(quint64 softLimitBlocks);

    // The walk used for every figure: what `ownerUid` owns under `path`,
    // leaving out the directories in `excluded`.
    static qint64 directorySize(const QString &path, const QSet<QString> &excluded, uint ownerUid);
    static qint64 directorySize(const QString &path, uint ownerUid);

    // The device of "/home", where the quotas are kept.
    static QByteArray homeDevice();

private:
    const QuotaSource &m_quotas;
};

#endif // PLINTHD_USERSTORAGEBREAKDOWN_H
