// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_USERSTORAGEBREAKDOWN_H
#define PLINTHD_USERSTORAGEBREAKDOWN_H

#include "storagefigures.h"

#include <QByteArray>

class FolderSizes;
class QuotaSource;

// Splits the user partition for one user: the five folders of the user's
// home, the user's other files under /home, and (for the device owner) what
// the other users hold; then applies the user's quota. It starts from the
// used, total and available bytes of the user partition, and gives the
// user's own.
class UserStorageBreakdown
{
public:
    UserStorageBreakdown(const QuotaSource &quotas, FolderSizes &folders);

    UserBreakdown measure(uint uid, const SpaceFigures &partition) const;

    // A block soft limit in bytes. Shifted as an unsigned 64-bit value, so an
    // absurd limit wraps rather than saturates; only a limit of 0 blocks
    // means "no quota".
    static quint64 quotaBytes(quint64 softLimitBlocks);

    // The device of "/home", where the quotas are kept.
    static QByteArray homeDevice();

private:
    const QuotaSource &m_quotas;
    FolderSizes &m_folders;
};

#endif // PLINTHD_USERSTORAGEBREAKDOWN_H
