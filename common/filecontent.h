// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_FILECONTENT_H
#define PLINTHD_FILECONTENT_H

#include <QByteArray>
#include <QString>

// The one reader of small kernel and system files (/proc, /sys, os-release),
// shared by the daemon's providers and the platform classes. It lives apart
// from both because the platform classes must not depend on the daemon, and
// the daemon must not rely on helpers that only this platform implementation
// has. It does not log: each caller knows what a missing file means to it.
namespace FileContent {

// The whole content of the file at PATH, or a null QByteArray when it cannot
// be opened or read. An existing empty file gives an empty, non-null array, so
// callers can tell "absent" from "empty" when a fallback depends on it.
// OPENED, when given, tells whether the file could be opened at all, for
// callers to whom a file that opens but fails to read is not a missing one.
QByteArray read(const QString &path, bool *opened = nullptr);

} // namespace FileContent

#endif // PLINTHD_FILECONTENT_H
