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

// "bytesUsed" followed directly by a category word.
QString bytesUsedFor(const QString &word);

// The user's folders, in the order they are measured.
const QStringList &userFolders();
const QString &bytesUsedOther();
const QString &bytesUsedOtherUsers();
} // namespace FigureKeys

#endif // PLINTHD_FIGUREKEYS_H
