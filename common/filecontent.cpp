// SPDX-License-Identifier: BSD-3-Clause
#include "filecontent.h"

#include <QFile>

namespace FileContent {

QByteArray read(const QString &path, bool *opened)
{
    QFile file(path);
    const bool isOpen = file.open(QIODevice::ReadOnly);
    if (opened)
        *opened = isOpen;
    if (!isOpen)
        return QByteArray();
    QByteArray bytes = file.readAll();
    // readAll() gives an empty array both for an empty file and after a read
    // error; only the error must look like a missing file.
    if (file.error() != QFileDevice::NoError)
        return QByteArray();
    if (bytes.isNull())
        bytes = QByteArray("");
    return bytes;
}

} // namespace FileContent
