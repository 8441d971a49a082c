// SPDX-License-Identifier: LicenseRef-plinthd
#ifndef PLINTHD_RPMLIBRARY_H
#define PLINTHD_RPMLIBRARY_H

#include <QMutex>

// The one door to the RPM library, for the certification check at start-up
// and the package sums of storage queries on pool threads.
//
// Every use of the library, from opening a transaction set to freeing it,
// holds use(): the library keeps process-wide state (its configuration and
// macros, the open databases, its signal handling) and does not promise that
// two threads may use it at once. A package sum takes some milliseconds, so
// queries that wait for each other here wait little.
namespace RpmLibrary {

// Locks the library for the caller's scope and reads its configuration on the
// first use: every further read would stack all macro definitions again (about
// 70 kB a read, never given back), which a daemon answering size queries for
// months cannot afford.
class Use
{
public:
    Use();
    ~Use();

private:
    QMutexLocker m_locker;
    Q_DISABLE_COPY(Use)
};

} // namespace RpmLibrary

#endif // PLINTHD_RPMLIBRARY_H
