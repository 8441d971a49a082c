// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_KERNELFILES_H
#define PLINTHD_KERNELFILES_H

#include <QByteArray>
#include <QString>

// Small parsers shared by the platform classes that answer from kernel and
// distribution files (read with FileContent::read). None of them logs: the
// platform classes pass "unknown" on as an empty value and let their callers
// decide what that means.
namespace KernelFiles {

// Device-tree string properties end in NUL (and a string list is several
// NUL-terminated strings); only the first string is the value.
QByteArray cutAtNul(const QByteArray &bytes);

// The value of KEY in os-release text: KEY=VALUE lines, "#" comments, values
// unquoted, in double quotes (where backslash escapes ", \, $ and `) or in
// single quotes (literal), as a shell that sources the file reads them. The
// last valid assignment wins, as with a shell; an assignment with an
// unterminated quote is skipped. No valid assignment gives an empty string.
QString osReleaseValue(const QByteArray &text, const QByteArray &key);

} // namespace KernelFiles

#endif // PLINTHD_KERNELFILES_H
