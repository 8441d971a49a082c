// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_FOLDERSIZES_H
#define PLINTHD_FOLDERSIZES_H

#include <QSet>
#include <QString>

#include <map>
#include <memory>
#include <mutex>

class FolderWatches;
class KeptTree;

// The one measure of folders the storage figures use: what one owner has
// under a path, leaving out excluded folders, exactly as DirectoryWalker
// counts it at the moment of the call. Each path walked is kept as a KeptTree
// between calls, so a repeated question costs a look at the change notices
// and a sum over folders; a path that cannot be kept that way (not absolute
// and cleaned, or no folder watches allowed) is walked every time.
//
// Any thread but the main one: every call may walk.
class FolderSizes
{
public:
    explicit FolderSizes(FolderWatches &watches);
    ~FolderSizes();
    FolderSizes(const FolderSizes &) = delete;
    FolderSizes &operator=(const FolderSizes &) = delete;

    qint64 size(const QString &path, const QSet<QString> &excluded, uint ownerUid);
    qint64 size(const QString &path, uint ownerUid);

    // What is kept now, over every path: for tests and measurements.
    struct Statistics
    {
        int trees = 0;
        int listedFolders = 0;
        int foldersWalkedEachTime = 0;
        int watches = 0;
        quint64 keptBytes = 0;
        quint64 listings = 0; // folders listed so far
    };
    Statistics statistics() const;

private:
    KeptTree *treeFor(const QString &cleanPath);

    FolderWatches &m_watches;
    // Guards the map alone, held to find or add a tree: each tree has a lock
    // of its own, so that a walk of one path never waits for another's.
    mutable std::mutex m_treesLock;
    std::map<QString, std::unique_ptr<KeptTree>> m_trees;
};

#endif // PLINTHD_FOLDERSIZES_H
