// SPDX-License-Identifier: BSD-3-Clause
#include "kepttree.h"

#include "directorywalker.h"
#include "folderwatches.h"
#include "logging.h"
#include "widefiletypes.h"

#include <QFile>

#include <string_view>
#include <unordered_map>
#include <vector>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// QFileInfo::ownerId() of a link whose target cannot be stat'ed.
constexpr uint UnknownOwner = uint(-2);

// Notices after which the folder is not the one that was listed there: it
// went, moved, or its file system went (the watch then ends too).
constexpr quint32 FolderLost = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

QByteArray childPath(const QByteArray &parent, const std::string &name)
{
    QByteArray path = parent;
    if (!path.endsWith('/'))
        path += '/';
    path.append(name.data(), int(name.size()));
    return path;
}

} // namespace

KeptTree::KeptTree(const QString &cleanPath, FolderWatches &watches)
    : m_path(cleanPath), m_nativePath(QFile::encodeName(cleanPath)), m_watches(watches)
{
    m_watches.subscribe(this);
}

KeptTree::~KeptTree()
{
    m_watches.unsubscribe(this);
}

qint64 KeptTree::size(uint ownerUid, const QSet<QString> &excluded)
{
    std::lock_guard<std::mutex> lock(m_lock);
    takeNotices();
    if (!rootIsCurrent()) {
        qCDebug(lcFolders) << m_path << "names no folder";
        return 0;
    }
    const quint64 listingsBefore = m_listings;
    int walkedEachTime = 0;

    const WalkExclusions exclusions(m_path, excluded);
    const DirectoryWalker walker(ownerUid, excluded);
    quint64 total = 0;
    struct Visit
    {
        KeptFolder *folder;
        const ExclusionNode *exclusion;
    };
    std::vector<Visit> pending{{m_root.get(), exclusions.root()}};
    while (!pending.empty()) {
        const Visit visit = pending.back();
        pending.pop_back();
        KeptFolder *folder = visit.folder;
        if (folder->state == KeptFolder::State::WalkedEachTime && folder->waitsForRoom && m_watches.hasRoom())
            folder->state = KeptFolder::State::Unlisted;
        if (folder->state == KeptFolder::State::Listed && folder->changed)
            relist(folder, pathOf(folder), walker, visit.exclusion);
        if (folder->state == KeptFolder::State::Unlisted)
            m_listings += quint64(walker.keep(folder, pathOf(folder), visit.exclusion, m_watches, this,
                                              DirectoryWalker::Scope::Tree));
        if (folder->state == KeptFolder::State::WalkedEachTime) {
            total += quint64(walker.size(QFile::decodeName(pathOf(folder))));
            ++walkedEachTime;
            continue;
        }
        const KeptListing &listing = *folder->listing;
        total += listing.bytesOf(ownerUid);
        if (!listing.links.empty() || !listing.sharedFiles.empty())
            total += linkedBytes(*folder, pathOf(folder), ownerUid);
        for (auto &subfolder : folder->listing->subfolders) {
            if (subfolder->device != folder->device)
                lookAtMountedFolder(subfolder, pathOf(folder));
            if (subfolder->owner != ownerUid)
                continue;
            const ExclusionNode *exclusion = visit.exclusion ? visit.exclusion->child(subfolder->name) : nullptr;
            if (!(exclusion && exclusion->excluded))
                pending.push_back({subfolder.get(), exclusion});
        }
    }
    qCDebug(lcFolders) << m_path << "for uid" << ownerUid << ":" << total << "bytes," << m_listings - listingsBefore
                       << "folders listed," << walkedEachTime << "walked";
    return qint64(total);
}

KeptTree::Statistics KeptTree::statistics() const
{
    std::lock_guard<std::mutex> lock(m_lock);
    Statistics statistics;
    statistics.listings = m_listings;
    if (!m_root)
        return statistics;
    const auto stringBytes = [](const std::string &text) {
        return text.capacity() > std::string().capacity() ? quint64(text.capacity() + 1) : 0;
    };
    std::vector<const KeptFolder *> pending{m_root.get()};
    while (!pending.empty()) {
        const KeptFolder *folder = pending.back();
        pending.pop_back();
        statistics.keptBytes += sizeof(KeptFolder) + stringBytes(folder->name);
        if (folder->state == KeptFolder::State::WalkedEachTime)
            ++statistics.foldersWalkedEachTime;
        if (!folder->listing)
            continue;
        ++statistics.listedFolders;
        const KeptListing &listing = *folder->listing;
        statistics.keptBytes += sizeof(KeptListing)
                + listing.bytesByOwner.capacity() * sizeof(listing.bytesByOwner.front())
                + listing.links.capacity() * sizeof(KeptListing::Link)
                + listing.sharedFiles.capacity() * sizeof(std::string)
                + listing.subfolders.capacity() * sizeof(std::unique_ptr<KeptFolder>);
        for (const KeptListing::Link &link : listing.links)
            statistics.keptBytes += stringBytes(link.name);
        for (const std::string &name : listing.sharedFiles)
            statistics.keptBytes += stringBytes(name);
        for (const auto &subfolder : listing.subfolders)
            pending.push_back(subfolder.get());
    }
    return statistics;
}

// Marks what the notices tell; nothing is freed here, as later notices of
// the same batch may name folders below one that went.
void KeptTree::takeNotices()
{
    bool lostNotices = false;
    for (const FolderWatches::Notice &notice : m_watches.take(this)) {
        switch (notice.kind) {
        case FolderWatches::Kind::Overflow:
            lostNotices = true;
            break;
        case FolderWatches::Kind::Mount:
            qCDebug(lcFolders) << m_path << ": mount changed at" << notice.name.c_str();
            noteMount(notice.name);
            break;
        case FolderWatches::Kind::Folder: {
            auto *folder = static_cast<KeptFolder *>(const_cast<void *>(notice.target));
            qCDebug(lcFolders).nospace() << m_path << ": notice " << Qt::hex << notice.mask << Qt::dec << " for "
                                         << pathOf(folder) << " " << notice.name.c_str();
            if (!(notice.mask & FolderLost)) {
                folder->changed = true;
            } else if (folder->parent) {
                folder->lost = true;
                folder->parent->changed = true;
            } else {
                lostNotices = true; // the kept path itself went
            }
            break;
        }
        }
    }
    if (lostNotices)
        dropAll();
}

// A mount below the path shows another folder (or file) in its parent than
// the one listed there.
void KeptTree::noteMount(const std::string &mountPoint)
{
    if (!m_root || m_root->state != KeptFolder::State::Listed)
        return;
    const std::string root = m_nativePath.toStdString();
    const std::string prefix = root == "/" ? root : root + '/';
    if (mountPoint.size() <= prefix.size() || mountPoint.compare(0, prefix.size(), prefix) != 0)
        return; // at or above the path: the path's own check sees it
    KeptFolder *folder = m_root.get();
    std::string_view rest(mountPoint);
    rest.remove_prefix(prefix.size());
    for (std::size_t slash = rest.find('/'); slash != std::string_view::npos; slash = rest.find('/')) {
        const std::string_view name = rest.substr(0, slash);
        rest.remove_prefix(slash + 1);
        KeptFolder *next = nullptr;
        for (const auto &subfolder : folder->listing->subfolders) {
            if (subfolder->name == name)
                next = subfolder.get();
        }
        if (!next || next->state != KeptFolder::State::Listed)
            return; // nothing kept down there
        folder = next;
    }
    folder->changed = true;
}

bool KeptTree::rootIsCurrent()
{
    const int fd = ::open(m_nativePath.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        dropAll();
        return false;
    }
    struct stat st;
    const bool identified = ::fstat(fd, &st) == 0;
    ::close(fd);
    if (!identified) {
        dropAll();
        return false;
    }
    if (m_root && (m_root->lost || m_root->device != quint64(st.st_dev) || m_root->inode != quint64(st.st_ino)))
        dropAll();
    if (!m_root) {
        m_root = std::make_unique<KeptFolder>();
        m_root->device = quint64(st.st_dev);
        m_root->inode = quint64(st.st_ino);
    }
    return true;
}

// Lists a folder with a notice again, alone. Subfolders still there with the
// same identity keep what is kept of them; the others are dropped, and the
// new ones are listed when a walk enters them.
void KeptTree::relist(KeptFolder *folder, const QByteArray &path, const DirectoryWalker &walker,
                      const ExclusionNode *exclusion)
{
    qCDebug(lcFolders) << "Listing again" << path;
    std::unique_ptr<KeptListing> old = std::move(folder->listing);
    m_listings += quint64(walker.keep(folder, path, exclusion, m_watches, this, DirectoryWalker::Scope::Folder));
    std::unordered_map<std::string_view, std::unique_ptr<KeptFolder> *> previous;
    for (auto &subfolder : old->subfolders) {
        // One refused for good may be watchable now (its owner or file system
        // changed), so it starts again as unlisted.
        const bool keep = !subfolder->lost
                && !(subfolder->state == KeptFolder::State::WalkedEachTime && !subfolder->waitsForRoom);
        if (keep)
            previous.emplace(subfolder->name, &subfolder);
    }
    if (folder->listing) {
        for (auto &subfolder : folder->listing->subfolders) {
            const auto found = previous.find(subfolder->name);
            if (found == previous.end())
                continue;
            std::unique_ptr<KeptFolder> &same = *found->second;
            if (same->device != subfolder->device || same->inode != subfolder->inode)
                continue;
            same->owner = subfolder->owner;
            std::swap(subfolder, same);
        }
    }
    for (auto &subfolder : old->subfolders)
        drop(std::move(subfolder));
}

// The root of a file system mounted on a subfolder tells its changes to its
// own watch only, not to the folder it is mounted in: its owner, which
// decides whether a walk enters it, is looked at again.
void KeptTree::lookAtMountedFolder(std::unique_ptr<KeptFolder> &subfolder, const QByteArray &parentPath)
{
    struct stat st;
    if (::lstat(childPath(parentPath, subfolder->name).constData(), &st) != 0 || !S_ISDIR(st.st_mode))
        return; // gone: its parent has a notice
    if (subfolder->device == quint64(st.st_dev) && subfolder->inode == quint64(st.st_ino)) {
        subfolder->owner = uint(st.st_uid);
        return;
    }
    auto another = std::make_unique<KeptFolder>();
    another->parent = subfolder->parent;
    another->name = subfolder->name;
    another->device = quint64(st.st_dev);
    another->inode = quint64(st.st_ino);
    another->owner = uint(st.st_uid);
    std::swap(subfolder, another);
    drop(std::move(another));
}

// The links count for the owner of what they point to, and the entries with
// several names count as they are now.
quint64 KeptTree::linkedBytes(const KeptFolder &folder, const QByteArray &path, uint ownerUid) const
{
    quint64 bytes = 0;
    struct stat st;
    for (const KeptListing::Link &link : folder.listing->links) {
        const uint owner = ::stat(childPath(path, link.name).constData(), &st) == 0 ? uint(st.st_uid) : UnknownOwner;
        if (owner == ownerUid)
            bytes += link.size;
    }
    for (const std::string &name : folder.listing->sharedFiles) {
        if (::lstat(childPath(path, name).constData(), &st) == 0 && !S_ISDIR(st.st_mode) && !S_ISLNK(st.st_mode)
            && uint(st.st_uid) == ownerUid) {
            bytes += quint64(st.st_size);
        }
    }
    return bytes;
}

QByteArray KeptTree::pathOf(const KeptFolder *folder) const
{
    std::vector<const std::string *> names;
    for (; folder->parent; folder = folder->parent)
        names.push_back(&folder->name);
    QByteArray path = m_nativePath;
    for (auto it = names.rbegin(); it != names.rend(); ++it)
        path = childPath(path, **it);
    return path;
}

// Ends the watches of a folder and everything below it, and frees them one
// by one: a tree thousands of levels deep must not recurse.
void KeptTree::drop(std::unique_ptr<KeptFolder> folder)
{
    std::vector<std::unique_ptr<KeptFolder>> pending;
    if (folder)
        pending.push_back(std::move(folder));
    while (!pending.empty()) {
        std::unique_ptr<KeptFolder> current = std::move(pending.back());
        pending.pop_back();
        if (current->watch >= 0)
            m_watches.unwatch(current->watch, this, current.get());
        if (current->listing) {
            for (auto &subfolder : current->listing->subfolders)
                pending.push_back(std::move(subfolder));
        }
    }
}

void KeptTree::dropAll()
{
    drop(std::move(m_root));
}
