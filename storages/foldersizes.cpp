// SPDX-License-Identifier: BSD-3-Clause
#include "foldersizes.h"

#include "directorywalker.h"
#include "folderwatches.h"
#include "kepttree.h"

#include <QDir>

#include <vector>

namespace {

// The path as a kept tree knows it: absolute and cleaned, a trailing
// separator allowed (the walk names its entries the same either way); empty
// when the path must be walked as it stands.
QString keptPathOf(const QString &path)
{
    if (!QDir::isAbsolutePath(path))
        return QString();
    const QString clean = QDir::cleanPath(path);
    if (path == clean || path == clean + QLatin1Char('/'))
        return clean;
    return QString();
}

} // namespace

FolderSizes::FolderSizes(FolderWatches &watches)
    : m_watches(watches)
{
}

FolderSizes::~FolderSizes() = default;

qint64 FolderSizes::size(const QString &path, const QSet<QString> &excluded, uint ownerUid)
{
    if (excluded.contains(path))
        return 0;
    const QString cleanPath = keptPathOf(path);
    if (cleanPath.isEmpty() || m_watches.maxWatches() == 0)
        return DirectoryWalker(ownerUid, excluded).size(path);
    return treeFor(cleanPath)->size(ownerUid, excluded);
}

qint64 FolderSizes::size(const QString &path, uint ownerUid)
{
    return size(path, QSet<QString>(), ownerUid);
}

FolderSizes::Statistics FolderSizes::statistics() const
{
    Statistics statistics;
    // Trees are never removed, and a tree's statistics wait for its walk: the
    // map's lock is not held meanwhile.
    std::vector<const KeptTree *> trees;
    {
        std::lock_guard<std::mutex> lock(m_treesLock);
        for (const auto &tree : m_trees)
            trees.push_back(tree.second.get());
    }
    for (const KeptTree *tree : trees) {
        const KeptTree::Statistics kept = tree->statistics();
        ++statistics.trees;
        statistics.listedFolders += kept.listedFolders;
        statistics.foldersWalkedEachTime += kept.foldersWalkedEachTime;
        statistics.keptBytes += kept.keptBytes;
        statistics.listings += kept.listings;
    }
    statistics.watches = m_watches.watchCount();
    return statistics;
}

KeptTree *FolderSizes::treeFor(const QString &cleanPath)
{
    std::lock_guard<std::mutex> lock(m_treesLock);
    std::unique_ptr<KeptTree> &tree = m_trees[cleanPath];
    if (!tree)
        tree = std::make_unique<KeptTree>(cleanPath, m_watches);
    return tree.get();
}
