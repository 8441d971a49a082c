// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_FIGUREKEYS_H
#define PLINTHD_FIGUREKEYS_H

#include <QString>
#include <QStringList>

// Keys of the internal-storage, user-partition, system-category and quota
// maps, beside the shared ones in StorageKeys. Keys composed from words are
// made on first use, once per process; queries on two pool threads may both
// be the first.
namespace FigureKeys {
extern const QString FilesystemType;
extern const QString InternalMemoryLabel;
extern const QString PartitionWord;

extern const QString QuotaIsSet;
extern const QString QuotaLimit;
extern const QString QuotaAvailable;
// No reply of the daemon carries these. They stay because they belong to the
// key set the Storages interface defines, which is kept whole and spelled in
// one place whether or not a reply of today uses every key.
extern const QString Error;
extern const QString Enabled;
extern const QString AllSpace;
extern const QString AvailableQuota;
extern const QString Min;
extern const QString MinPercent;
extern const QString Max;
extern const QString MaxPercent;
extern const QString Recommended;
extern const QString RecommendedPercent;

// "bytesUsed" followed directly by a category word.
QString bytesUsedFor(const QString &word);

// The user's folders, in the order they are measured.
const QStringList &userFolders();
const QString &bytesUsedOther();
const QString &bytesUsedOtherUsers();
} // namespace FigureKeys

#endif // PLINTHD_FIGUREKEYS_H
