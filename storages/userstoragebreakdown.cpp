// SPDX-License-Identifier: BSD-3-Clause
#include "userstoragebreakdown.h"

#include "deviceusers.h"
#include "foldersizes.h"
#include "logging.h"
#include "quotasource.h"

#include <QDir>
#include <QSet>
#include <QStorageInfo>

namespace {

// The kernel counts quotas in blocks of 1 KiB.
const int QuotaBlockShift = 10;

} // namespace

UserStorageBreakdown::UserStorageBreakdown(const QuotaSource &quotas, FolderSizes &folders)
    : m_quotas(quotas), m_folders(folders)
{
}

QByteArray UserStorageBreakdown::homeDevice()
{
    return QStorageInfo(QStringLiteral("/home")).device();
}

quint64 UserStorageBreakdown::quotaBytes(quint64 softLimitBlocks)
{
    return softLimitBlocks << QuotaBlockShift;
}

UserBreakdown UserStorageBreakdown::measure(uint uid, const SpaceFigures &partition) const
{
    const QString homeRoot = QStringLiteral("/home");
    // An unknown uid gives "/home/" and folder paths with a doubled separator;
    // they name nothing and count 0.
    const QString home = homeRoot + QDir::separator() + DeviceUsers::userName(uid);

    UserBreakdown breakdown;
    qint64 folderSum = 0;
    QSet<QString> excluded;
    for (const UserFolder &folder : UserFolders) {
        const QString path = home + QLatin1Char('/') + QLatin1String(folder.name);
        const qint64 size = m_folders.size(path, uid);
        breakdown.folderBytes.append(quint64(size));
        folderSum += size;
        excluded.insert(path);
    }

    const QStringList names = DeviceUsers::names();
    const qint64 partitionUsed = qint64(partition.used);
    qint64 userUsed = partitionUsed;

    if (names.size() == 1) {
        // One user holds the whole partition: no walk of /home is needed.
        breakdown.otherBytes = quint64(partitionUsed - folderSum);
        breakdown.otherUsers = UserBreakdown::OtherUsers::SoleUser;
    } else {
        const qint64 homeOther = m_folders.size(home, excluded, uid);
        for (const QString &name : names)
            excluded.insert(homeRoot + QDir::separator() + name);
        const qint64 other = homeOther + m_folders.size(homeRoot, excluded, uid);
        breakdown.otherBytes = quint64(other);
        // The owner sees the whole partition, everyone else only their own bytes.
        if (uid == DeviceUsers::Owner) {
            breakdown.otherUsers = UserBreakdown::OtherUsers::Held;
            breakdown.otherUsersBytes = quint64(partitionUsed - folderSum - other);
        } else {
            userUsed = folderSum + other;
        }
    }

    qint64 available = qint64(partition.available);
    qint64 total = userUsed + available;
    // The soft limit is the quota; the hard limit is never consulted.
    breakdown.softLimitBlocks = m_quotas.userBlockSoftLimit(homeDevice(), uid);
    if (!breakdown.softLimitBlocks) {
        qCWarning(lcPlinthd).noquote() << "fillInternalUserStorageInfo" << "Failed to get quota for uid:" << uid;
    } else if (*breakdown.softLimitBlocks != 0) {
        const qint64 limit = qint64(quotaBytes(*breakdown.softLimitBlocks));
        total = qMax(userUsed, limit);
        available = userUsed < limit ? limit - userUsed : 0;
    }

    breakdown.space.available = quint64(available);
    breakdown.space.total = quint64(total);
    breakdown.space.used = quint64(userUsed);
    return breakdown;
}
