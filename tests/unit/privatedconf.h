// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTS_PRIVATEDCONF_H
#define PLINTHD_TESTS_PRIVATEDCONF_H

#include <QByteArray>

// A dconf system database of the test's own: a tmpfs over /etc/dconf in the
// private mount namespace CTest runs the test in (MOUNT_NAMESPACE), so that the
// machine's configuration is never touched. The
// process reads it through DCONF_PROFILE, and write() compiles keyfiles with
// "dconf update", which announces the change on the system bus as it would on
// a device.
namespace PrivateDconf {

// Call first in main(), before QCoreApplication reads DCONF_PROFILE. Returns
// whether the database is in place (not without that namespace or /etc/dconf).
bool enter();
bool isReady();

// Replaces the database's only keyfile with keyfile and compiles it.
bool write(const QByteArray &keyfile);

} // namespace PrivateDconf

#endif // PLINTHD_TESTS_PRIVATEDCONF_H
