// SPDX-License-Identifier: LicenseRef-plinthd
#ifndef PLINTHD_RPMDATABASE_H
#define PLINTHD_RPMDATABASE_H

// Where librpm keeps the installed-package database, and whether one is there.
//
// Opening a database that does not exist is not harmless: librpm then creates
// an empty one at its configured path, which on a system whose rpm
// configuration points into a home folder (Debian's does: ~/.rpmdb) means
// files appearing in root's home, and it logs an error for every query.
// Callers ask readable() first and leave the library alone when it says no.
namespace RpmDatabase {

// Reads librpm's configuration, once per process: every further read stacks
// all macro definitions again, memory a long-running daemon never gets back.
void readConfigurationOnce();

// True when the configured database folder holds a database of one of the
// library's formats. The first time it is false, one warning says where the
// database was looked for; later calls stay quiet.
bool readable();

} // namespace RpmDatabase

#endif // PLINTHD_RPMDATABASE_H
