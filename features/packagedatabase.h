// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PACKAGEDATABASE_H
#define PLINTHD_PACKAGEDATABASE_H

#include <QByteArray>

namespace PackageDatabase {

// True when the installed-package database holds a package whose name is
// exactly NAME (case-sensitive; a name that merely contains it does not count).
// A missing or unreadable database gives false.
bool hasPackageNamed(const QByteArray &name);

} // namespace PackageDatabase

#endif // PLINTHD_PACKAGEDATABASE_H
