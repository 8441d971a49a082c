// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PACKAGESIZES_H
#define PLINTHD_PACKAGESIZES_H

#include <QHash>
#include <QString>

#include <mutex>
#include <string>

class FolderWatches;

// The installed sizes that packages declare, summed over the packages of the
// RPM database whose names match a pattern ("tarn-*", "*-debuginfo") under
// the library's default matching.
//
// A sum is kept until the database changes: the database's folder is
// watched (FolderWatches) before it is first read, and any notice of a change
// to the database's files drops every kept sum. The library's own readers
// touch the lock and the write-ahead log's shared-memory index, and change
// attributes as they open; those notices are not changes of the packages.
// Without a watch (no such folder, no room) every call reads the database.
//
// Any thread but the main one.
class PackageSizes
{
public:
    explicit PackageSizes(FolderWatches &watches);
    ~PackageSizes();
    PackageSizes(const PackageSizes &) = delete;
    PackageSizes &operator=(const PackageSizes &) = delete;

    quint64 sum(const QString &namePattern);

    // The database as it is now, read afresh.
    static quint64 read(const QString &namePattern);

    // Reads of the database so far, for tests and measurements.
    quint64 reads() const;

private:
    void forgetWhatChanged();
    void watchDatabase();

    FolderWatches &m_watches;
    mutable std::mutex m_lock;
    int m_watch = -1;
    QHash<QString, quint64> m_sums;
    quint64 m_reads = 0;
};

#endif // PLINTHD_PACKAGESIZES_H
