// SPDX-License-Identifier: BSD-3-Clause
#include "figurekeys.h"

#include "storagekeys.h"

namespace FigureKeys {
const QString FilesystemType = QStringLiteral("filesystemType");
const QString InternalMemoryLabel = QStringLiteral("internal memory");
const QString PartitionWord = QStringLiteral("partition");

const QString QuotaIsSet = QStringLiteral("quotaIsSet");
const QString QuotaLimit = QStringLiteral("quotaLimit");
const QString QuotaAvailable = QStringLiteral("quotaAvailable");

QString bytesUsedFor(const QString &word)
{
    return StorageKeys::BytesUsed + word;
}

// Function-local statics: C++ makes their first initialisation thread-safe.
const QStringList &userFolders()
{
    static const QStringList folders = {QStringLiteral("Pictures"), QStringLiteral("Videos"),
                                        QStringLiteral("Music"), QStringLiteral("Documents"),
                                        QStringLiteral("Downloads")};
    return folders;
}

const QString &bytesUsedOther()
{
    static const QString key = bytesUsedFor(QStringLiteral("Other"));
    return key;
}

const QString &bytesUsedOtherUsers()
{
    static const QString key = bytesUsedFor(QStringLiteral("OtherUsers"));
    return key;
}
} // namespace FigureKeys
