// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_RPMLIBRARY_H
#define PLINTHD_RPMLIBRARY_H

#include <QMutex>
#include <QString>

#include <memory>

#include <rpm/rpmdb.h>
#include <rpm/rpmtd.h>
#include <rpm/rpmts.h>

// The one door to the RPM library, for the certification check at start-up
// and the package sums of storage queries on pool threads.
//
// Every use of the library, from opening a transaction set to freeing it,
// holds a Use: the library keeps process-wide state (its configuration and
// macros, the open databases, its signal handling) and does not promise that
// two threads may use it at once. A package sum takes some milliseconds, so
// queries that wait for each other here wait little.
namespace RpmLibrary {

// Scoped owners of the library's handles: each is released with its own free
// function on every way out, early returns included.
template<typename Handle, Handle *(*Free)(Handle *)>
struct Releaser
{
    void operator()(Handle *handle) const { Free(handle); }
};

using TransactionSet = std::unique_ptr<rpmts_s, Releaser<rpmts_s, rpmtsFree>>;
using Iterator = std::unique_ptr<rpmdbMatchIterator_s, Releaser<rpmdbMatchIterator_s, rpmdbFreeIterator>>;
using TagData = std::unique_ptr<rpmtd_s, Releaser<rpmtd_s, rpmtdFree>>;

class Use
{
public:
    // Locks the library for the caller's scope and reads its configuration
    // on the first use: every further read would stack all macro definitions
    // again (about 70 kB a read, never given back), which a daemon answering
    // size queries for months cannot afford.
    Use();
    ~Use();

    // True when the configured database folder holds a database of one of
    // the library's formats. Ask before opening one: opening a database that
    // does not exist is not harmless, as the library then creates an empty
    // one at its configured path, which on a system whose configuration
    // points into a home folder (Debian's does: ~/.rpmdb) means files
    // appearing in root's home, and it logs an error for every query. The
    // first time the answer is no, one warning says where the database was
    // looked for; later calls stay quiet.
    bool hasDatabase() const;

    // The folder the configuration names for the database (%_dbpath); empty
    // when it names none.
    QString databaseFolder() const;

private:
    QMutexLocker m_locker;
    Q_DISABLE_COPY(Use)
};

} // namespace RpmLibrary

#endif // PLINTHD_RPMLIBRARY_H
