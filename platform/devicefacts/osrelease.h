// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_OSRELEASE_H
#define PLINTHD_OSRELEASE_H

#include <QByteArray>
#include <QString>

// The reader of os-release text (read with FileContent::read), which names the
// installed system. It does not log: AboutSettings passes "unknown" on as an
// empty value and lets its callers decide what that means.
namespace OsRelease {

// The value of KEY in os-release text: KEY=VALUE lines, "#" comments, values
// unquoted, in double quotes (where backslash escapes ", \, $ and `) or in
// single quotes (literal), as a shell that sources the file reads them. The
// last valid assignment wins, as with a shell; an assignment with an
// unterminated quote is skipped. No valid assignment gives an empty string.
QString value(const QByteArray &text, const QByteArray &key);

} // namespace OsRelease

#endif // PLINTHD_OSRELEASE_H
