// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_KEPTTREE_H
#define PLINTHD_KEPTTREE_H

#include "keptfolder.h"
#include "walkexclusions.h"

#include <QByteArray>
#include <QSet>
#include <QString>

#include <memory>
#include <mutex>
#include <string>

class DirectoryWalker;
class FolderWatches;

// The folders under one walked path, kept between queries with what each
// holds for every owner, so that a query sums folders instead of walking
// files. size() answers what DirectoryWalker(owner, excluded).size(path)
// would answer at that moment:
//
// - It first takes every change notice the kernel has queued (FolderWatches),
//   so whatever changed before the query is seen: a folder with a notice is
//   listed again, and only that folder. A folder that went, moved or lost its
//   file system is listed again from its parent; notices lost in the
//   kernel's queue drop everything.
// - It opens the path again: when it names another folder than the kept one
//   (replaced, or a mount over it or over a folder above it), everything is
//   dropped; when it names none, the answer is 0.
// - A mount that appears or goes below the path has its parent listed again,
//   which sees the folder beneath or the mounted one.
// - Links and entries with more than one name are looked at again: what they
//   count can change without a notice to the folder that holds them.
// - Folders the walk enters for the first time are listed (and watched) by a
//   walk of the pool; folders that cannot be watched (no room among the
//   watches, a file system that may change unseen) are walked as a plain walk
//   would, at every query that enters them.
//
// One kept folder that one answer does not need (another owner's, an
// excluded one) is neither listed nor walked. The known blind spot: a file
// that has one name when its folder is listed, and is then given a second
// name in a folder outside every kept tree, changes through that name without
// a notice here (the kernel tells only the watchers of the file itself);
// docs/threading.md's walk section says more.
//
// Threads: query workers; `m_lock` serialises the queries of one path, and is
// held across the medium (listings, walks), never taken by the main thread.
class KeptTree
{
public:
    // `cleanPath`: absolute, cleaned (no trailing separator but for "/").
    KeptTree(const QString &cleanPath, FolderWatches &watches);
    ~KeptTree();
    KeptTree(const KeptTree &) = delete;
    KeptTree &operator=(const KeptTree &) = delete;

    qint64 size(uint ownerUid, const QSet<QString> &excluded);

    struct Statistics
    {
        int listedFolders = 0;
        int foldersWalkedEachTime = 0;
        quint64 keptBytes = 0; // what the kept folders cost in memory, about
        quint64 listings = 0;  // folders listed since the tree was made
    };
    Statistics statistics() const;

private:
    using ExclusionNode = WalkExclusions::Node;

    void takeNotices();
    void noteMount(const std::string &mountPoint);
    bool rootIsCurrent();
    void relist(KeptFolder *folder, const QByteArray &path, const DirectoryWalker &walker,
                const ExclusionNode *exclusion);
    void lookAtMountedFolder(std::unique_ptr<KeptFolder> &subfolder, const QByteArray &parentPath);
    quint64 linkedBytes(const KeptFolder &folder, const QByteArray &path, uint ownerUid) const;
    QByteArray pathOf(const KeptFolder *folder) const;
    void drop(std::unique_ptr<KeptFolder> folder);
    void dropAll();

    const QString m_path;
    const QByteArray m_nativePath;
    FolderWatches &m_watches;
    mutable std::mutex m_lock;
    std::unique_ptr<KeptFolder> m_root;
    quint64 m_listings = 0;
};

#endif // PLINTHD_KEPTTREE_H
