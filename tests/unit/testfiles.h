// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTS_TESTFILES_H
#define PLINTHD_TESTS_TESTFILES_H

// Files of known apparent sizes and owners, with their folders.

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <unistd.h>

namespace TestFiles {

inline void makeDirectory(const QString &path, uint owner)
{
    QVERIFY(QDir().mkpath(path));
    QVERIFY(::chown(QFile::encodeName(path).constData(), owner, owner) == 0);
}

// Sparse: any size costs nothing on disk.
inline void write(const QString &path, qint64 size, uint owner)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QVERIFY(file.resize(size));
    file.close();
    QVERIFY(::chown(QFile::encodeName(path).constData(), owner, owner) == 0);
}

} // namespace TestFiles

#endif // PLINTHD_TESTS_TESTFILES_H
