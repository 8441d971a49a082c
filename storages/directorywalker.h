// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_DIRECTORYWALKER_H
#define PLINTHD_DIRECTORYWALKER_H

#include "walkexclusions.h"

#include <QByteArray>
#include <QSet>
#include <QString>

class FolderWatches;
struct KeptFolder;

// Adds up the apparent sizes of everything one owner has under a directory.
//
// The figures are those of a plain QDir/QFileInfo walk: an entry of another
// owner is skipped (a directory of another owner is not entered), a symbolic
// link counts its own length and is never followed (its owner is the owner of
// what it points to, as QFileInfo reports it), and a directory whose absolute
// path is in the exclusion set counts nothing. Paths the walk would build that
// the kernel refuses as too long count nothing either, exactly as they do for
// the path-based walk.
//
// It gets there without paths: directories are opened relative to their
// parent's descriptor and listed with getdents64, every entry costs one
// fstatat. The caller's thread lists the top directory; the tree below is
// walked by threads of the walk pool that every walk of the daemon shares
// (as many as the machine has cores, at a lower priority), while the caller
// waits. So concurrent walks share the cores instead of each starting threads
// of its own.
//
// It also makes the listings that kept folder trees keep (keep()): the same
// folders entered, the same entries seen, recorded for every owner at once.
//
// Its source is longer than its neighbours' on purpose: the tree of listed
// directories with their shared descriptors, the queue the threads take work
// from and the listing itself are one job, bound by one mutex and by the
// invariants on when a descriptor may close; apart, each file would have to
// restate the others' rules.
class DirectoryWalker
{
public:
    explicit DirectoryWalker(uint ownerUid, const QSet<QString> &excluded = QSet<QString>());

    // Threads of the walk pool one walk may use at once (at least 1).
    void setMaxThreads(int threads);
    // Entries listed before more threads join (a thread costs more than a
    // small tree); negative: never. For tests and measurements.
    void setEntriesBeforeHelpers(qint64 entries);

    qint64 size(const QString &path) const;

    enum class Scope {
        Folder, // the folder alone: its subfolders are left unlisted
        Tree    // and every folder below that a walk of the owner enters
    };
    // Watches and lists the kept folder `top`, found at `cleanPath` (absolute
    // and cleaned), and with Scope::Tree the folders below it that this
    // owner's walk enters, leaving out those that `exclusions` (the node of
    // `top`) names. Each listed folder is watched first, in `watches` for
    // `subscriber`, and gets a new listing; one that cannot be watched (or
    // opened) is left WalkedEachTime and unlisted. Subfolders the walk does
    // not enter are left Unlisted. A `top` already watched keeps its watch.
    // Returns how many folders were listed.
    int keep(KeptFolder *top, const QByteArray &cleanPath, const WalkExclusions::Node *exclusions,
              FolderWatches &watches, const void *subscriber, Scope scope) const;

private:
    uint m_ownerUid;
    QSet<QString> m_excluded;
    int m_maxThreads;
    qint64 m_entriesBeforeHelpers;
};

#endif // PLINTHD_DIRECTORYWALKER_H
