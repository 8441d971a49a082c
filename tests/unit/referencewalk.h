// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTS_REFERENCEWALK_H
#define PLINTHD_TESTS_REFERENCEWALK_H

// The storage walk written the plain way, entry by entry through QDir and
// QFileInfo. Tests hold the daemon's walker to its figures.

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QString>

#include <sys/stat.h>

inline qint64 referenceDirectorySize(const QString &path, const QSet<QString> &excluded, uint ownerUid)
{
    if (excluded.contains(path))
        return 0;
    const QDir dir(path);
    if (!dir.exists())
        return 0;
    const QFileInfoList entries = dir.entryInfoList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::NoSort);
    qint64 total = 0;
    for (const QFileInfo &info : entries) {
        if (info.ownerId() != ownerUid)
            continue;
        if (info.isSymLink()) {
            struct stat st;
            if (::lstat(info.absoluteFilePath().toLocal8Bit().constData(), &st) == 0)
                total += st.st_size;
        } else if (info.isDir()) {
            total += referenceDirectorySize(info.absoluteFilePath(), excluded, ownerUid);
        } else {
            total += info.size();
        }
    }
    return total;
}

#endif // PLINTHD_TESTS_REFERENCEWALK_H
