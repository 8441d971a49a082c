// SPDX-License-Identifier: BSD-3-Clause
#include "directorywalker.h"

#include "folderwatches.h"
#include "keptfolder.h"
#include "localfilenames.h"
#include "logging.h"
#include "testhold.h"
#include "threadhandoff.h"
#include "widefiletypes.h"

#include <QDir>
#include <QFile>
#include <QThread>
#include <QThreadPool>

#include <atomic>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// QFileInfo::ownerId() of an entry that cannot be stat'ed (a dangling link).
constexpr uint UnknownOwner = uint(-2);

// A path of this many bytes or more is refused by the kernel (ENAMETOOLONG).
constexpr std::size_t PathMax = PATH_MAX;

// Descriptors of listed directories are kept open while their subdirectories
// wait, so that those open relative to them. Past the budget only every
// CheckpointEvery-th level keeps one, and deeper directories open through a
// short relative path from the nearest kept ancestor: a tree thousands of
// levels deep costs a bounded number of descriptors.
constexpr int KeptDescriptorBudget = 48;
constexpr int CheckpointEvery = 32;

// A second thread pays off only on trees of some size.
constexpr qint64 DefaultEntriesBeforeHelpers = 2048;

constexpr std::size_t ListingBufferSize = 64 * 1024;

// A walk is background work: its threads yield the processor to the main
// thread, which must answer other callers within milliseconds even while two
// walks keep both cores busy.
constexpr int WalkNiceness = 10;

// The threads every walk of the daemon shares, as many as the machine has
// cores: concurrent walks queue for them instead of each starting threads of
// its own. They exist for walks alone, so each lowers its own priority once,
// the first time it walks, and keeps it low; lowering needs no capability,
// where raising it back would.
QThreadPool &walkPool()
{
    static QThreadPool *const pool = [] {
        auto *threads = new QThreadPool;
        threads->setMaxThreadCount(qMax(1, QThread::idealThreadCount()));
        return threads;
    }();
    return *pool;
}

void lowerThisThreadOnce()
{
    thread_local bool lowered = false;
    if (lowered)
        return;
    lowered = true;
    const id_t thread = id_t(::gettid());
    errno = 0;
    const int current = ::getpriority(PRIO_PROCESS, thread);
    if (errno == 0 && current < WalkNiceness && ::setpriority(PRIO_PROCESS, thread, WalkNiceness) != 0)
        qCDebug(lcPlinthd) << "Walk thread keeps its priority:" << std::strerror(errno);
}

using ExclusionNode = WalkExclusions::Node;

struct DirNode
{
    DirNode *parent = nullptr;
    std::atomic<int> references{1};
    int fd = -1;
    int depth = 0;
    // Bytes of the walk's path of an entry up to its name, separator included:
    // for the directories and links beneath (absolute, cleaned paths) and for
    // the other entries (the listing's own paths; they differ only at the top).
    std::size_t childPrefixLength = 0;
    std::size_t filePrefixLength = 0;
    const ExclusionNode *exclusion = nullptr;
    std::string name;
    // A keeping walk: the folder whose listing this one fills.
    KeptFolder *kept = nullptr;
};

bool isDotOrDotDot(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// One walk, plain or keeping. A plain walk sums what one owner has. A
// keeping walk records in KeptFolders what each listed folder holds for every
// owner, watching each folder before it lists it, and enters the same
// folders a plain walk of the owner would.
class Walk
{
public:
    struct Keeping
    {
        FolderWatches &watches;
        const void *subscriber;
        bool descend;
    };

    Walk(uint ownerUid, int maxThreads, qint64 entriesBeforeHelpers, const Keeping *keeping = nullptr)
        : m_ownerUid(ownerUid),
          m_maxThreads(maxThreads),
          m_entriesBeforeHelpers(entriesBeforeHelpers),
          m_keeping(keeping)
    {
    }

    qint64 run(const QString &path, const QSet<QString> &excluded);
    int keep(KeptFolder *top, const QByteArray &cleanPath, const ExclusionNode *exclusions);

private:
    struct Listing
    {
        qint64 bytes = 0;
        qint64 entries = 0;
    };

    void walkBelow(const Listing &top);
    void work();
    void startHelper();
    void startHelperIfWorthIt();
    void visit(DirNode *node, std::vector<DirNode *> &found, std::vector<char> &buffer, Listing &listing);
    template<typename OnEntry>
    Listing forEachEntry(int fd, std::vector<char> &buffer, OnEntry onEntry) const;
    Listing list(int fd, const DirNode *self, DirNode *childParent, std::vector<DirNode *> &found,
                 std::vector<char> &buffer);
    Listing keepListing(int fd, DirNode *self, std::vector<DirNode *> &found, std::vector<char> &buffer);
    bool startKeeping(KeptFolder *folder, int fd);
    DirNode *childNode(DirNode *parent, std::string_view name, std::size_t pathLength,
                       const ExclusionNode *exclusion);
    int openDirectory(const DirNode *node) const;
    void release(DirNode *node);

    const uint m_ownerUid;
    const int m_maxThreads;
    const qint64 m_entriesBeforeHelpers;
    const Keeping *const m_keeping;
    const LocalFileNames m_names;
    std::atomic<int> m_keptDescriptors{0};
    std::atomic<int> m_listedFolders{0};

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<DirNode *> m_pending;
    int m_busy = 0;
    int m_waiting = 0;
    qint64 m_entries = 0;
    // Helpers handed to the walk pool and not finished yet; the walk ends
    // when the last one has.
    int m_helpers = 0;
    std::condition_variable m_helpersDone;
    qint64 m_bytes = 0;
};

qint64 Walk::run(const QString &path, const QSet<QString> &excluded)
{
    if (excluded.contains(path))
        return 0;

    // The directory as QDir names it (one trailing separator dropped, an empty
    // path meaning the current directory) and the cleaned absolute path that
    // the names of its entries are built on.
    const QDir dir(path);
    const QByteArray native = QFile::encodeName(dir.path());
    // absolutePath() leaves an absolute path with a trailing separator as it is.
    const QString cleanRoot = QDir::cleanPath(dir.absolutePath());
    const QByteArray cleanNative = QFile::encodeName(cleanRoot);

    const int rootFd = ::open(native.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (rootFd < 0)
        return 0;

    const WalkExclusions exclusions(cleanRoot, excluded);

    auto *root = new DirNode;
    root->fd = rootFd;
    root->childPrefixLength = cleanRoot == QLatin1String("/") ? 1 : std::size_t(cleanNative.size()) + 1;
    root->filePrefixLength = std::size_t(native.size()) + (native.endsWith('/') ? 0 : 1);
    root->exclusion = exclusions.root();

    // Links and directories at the top are reached again through the cleaned
    // path. When that names another directory (a ".." after a symbolic link),
    // they are looked up there, as the path-based walk would.
    DirNode *childParent = root;
    if (cleanNative != native) {
        const int lexicalFd = ::open(cleanNative.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        struct stat a, b;
        const bool same = lexicalFd >= 0 && ::fstat(rootFd, &a) == 0 && ::fstat(lexicalFd, &b) == 0
                && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
        if (same) {
            ::close(lexicalFd);
        } else {
            childParent = new DirNode;
            childParent->fd = lexicalFd;
            childParent->childPrefixLength = root->childPrefixLength;
            childParent->filePrefixLength = root->childPrefixLength;
            childParent->exclusion = exclusions.root();
        }
    }

    std::vector<char> buffer(ListingBufferSize);
    walkBelow(list(rootFd, root, childParent, m_pending, buffer));

    if (childParent != root)
        release(childParent);
    release(root);
    return m_bytes;
}

int Walk::keep(KeptFolder *top, const QByteArray &cleanPath, const ExclusionNode *exclusions)
{
    const int topFd = ::open(cleanPath.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (topFd < 0) {
        // A plain walk finds nothing here either.
        if (top->watch >= 0)
            m_keeping->watches.unwatch(top->watch, m_keeping->subscriber, top);
        top->watch = -1;
        top->state = KeptFolder::State::WalkedEachTime;
        return 0;
    }
    if (!startKeeping(top, topFd)) {
        ::close(topFd);
        return 0;
    }
    auto *root = new DirNode;
    root->fd = topFd;
    root->childPrefixLength = cleanPath == "/" ? 1 : std::size_t(cleanPath.size()) + 1;
    root->filePrefixLength = root->childPrefixLength;
    root->exclusion = exclusions;
    root->kept = top;

    std::vector<char> buffer(ListingBufferSize);
    walkBelow(keepListing(topFd, root, m_pending, buffer));
    release(root);
    return m_listedFolders.load();
}

// The calling thread (a query's worker) lists the top only and leaves the
// tree to the walk pool, whose threads run at the lower priority.
void Walk::walkBelow(const Listing &top)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_entries = top.entries;
    m_bytes = top.bytes;
    if (!m_pending.empty())
        startHelper();
    m_helpersDone.wait(lock, [this] { return m_helpers == 0; });
}

void Walk::work()
{
    std::vector<DirNode *> found;
    std::vector<char> buffer(ListingBufferSize);
    Listing listing;

    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        while (m_pending.empty() && m_busy > 0) {
            ++m_waiting;
            m_wake.wait(lock);
            --m_waiting;
        }
        if (m_pending.empty())
            break;
        DirNode *node = m_pending.back();
        m_pending.pop_back();
        ++m_busy;
        startHelperIfWorthIt();
        lock.unlock();

        listing = Listing();
        visit(node, found, buffer, listing);

        lock.lock();
        --m_busy;
        m_bytes += listing.bytes;
        m_entries += listing.entries;
        m_pending.insert(m_pending.end(), found.begin(), found.end());
        found.clear();
        if (m_waiting > 0 && (!m_pending.empty() || m_busy == 0))
            m_wake.notify_all();
    }
    m_wake.notify_all();
    // Under the lock: the walk may end, and this object go, as soon as the
    // caller sees the count drop.
    if (--m_helpers == 0)
        m_helpersDone.notify_all();
}

// Called with the mutex held. A helper that the pool starts late, after the
// others have finished the tree, finds nothing to do and ends at once.
void Walk::startHelper()
{
    ++m_helpers;
    PLINTHD_HANDOFF_RELEASE(this);
    walkPool().start([this] {
        PLINTHD_HANDOFF_ACQUIRE(this);
        lowerThisThreadOnce();
        work();
    });
}

// Called with the mutex held.
void Walk::startHelperIfWorthIt()
{
    if (m_helpers >= m_maxThreads || m_pending.empty() || m_entriesBeforeHelpers < 0
        || m_entries < m_entriesBeforeHelpers)
        return;
    startHelper();
}

void Walk::visit(DirNode *node, std::vector<DirNode *> &found, std::vector<char> &buffer, Listing &listing)
{
    const int fd = openDirectory(node);
    if (fd < 0 && node->kept) {
        node->kept->state = KeptFolder::State::WalkedEachTime; // as a plain walk, it counts nothing
    } else if (fd >= 0 && node->kept && !startKeeping(node->kept, fd)) {
        ::close(fd);
    } else if (fd >= 0) {
        listing = node->kept ? keepListing(fd, node, found, buffer) : list(fd, node, node, found, buffer);
        const bool keep = !found.empty()
                && (m_keptDescriptors.load(std::memory_order_relaxed) < KeptDescriptorBudget
                    || node->depth % CheckpointEvery == 0);
        if (keep) {
            // Set before the subdirectories are published under the mutex.
            node->fd = fd;
            m_keptDescriptors.fetch_add(1, std::memory_order_relaxed);
        } else {
            ::close(fd);
        }
    }
    release(node);
}

int Walk::openDirectory(const DirNode *node) const
{
    const DirNode *anchor = node->parent;
    if (anchor->fd >= 0)
        return ::openat(anchor->fd, node->name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);

    // The descriptors of ancestors stay as they are while descendants live,
    // so this chain can be read without a lock.
    std::vector<const DirNode *> chain{node};
    while (anchor->fd < 0) {
        chain.push_back(anchor);
        anchor = anchor->parent;
    }
    std::string relative;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        relative += (*it)->name;
        relative += '/';
    }
    relative.pop_back();
    return ::openat(anchor->fd, relative.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// Calls `onEntry(name, nameLength, type)` for every entry of the folder
// open at `fd` that a Qt listing shows, and counts them.
template<typename OnEntry>
Walk::Listing Walk::forEachEntry(int fd, std::vector<char> &buffer, OnEntry onEntry) const
{
    Listing listing;
    for (;;) {
        const ssize_t length = ::getdents64(fd, buffer.data(), buffer.size());
        if (length <= 0)
            break;
        for (ssize_t offset = 0; offset < length;) {
            const auto *entry = reinterpret_cast<const struct dirent64 *>(buffer.data() + offset);
            offset += entry->d_reclen;
            const char *name = entry->d_name;
            if (isDotOrDotDot(name))
                continue;
            const std::size_t nameLength = std::strlen(name);
            if (!m_names.isListed(name, nameLength))
                continue;
            ++listing.entries;
            listing.bytes += onEntry(name, nameLength, entry->d_type);
        }
    }
    return listing;
}

Walk::Listing Walk::list(int fd, const DirNode *self, DirNode *childParent, std::vector<DirNode *> &found,
                         std::vector<char> &buffer)
{
    // Where links and subdirectories are looked up: this directory, except
    // at the top when the cleaned path names another one.
    const int lookupFd = childParent == self ? fd : childParent->fd;
    return forEachEntry(fd, buffer, [&](const char *name, std::size_t nameLength, unsigned char type) -> qint64 {
        // The listing stats each entry through a path; past the limit that
        // fails and QFileInfo reports the unknown owner. Only a link can
        // then still count, through its cleaned path.
        if (self->filePrefixLength + nameLength >= PathMax) {
            struct stat link;
            if (m_ownerUid == UnknownOwner && type == DT_LNK && lookupFd >= 0
                && childParent->childPrefixLength + nameLength < PathMax
                && ::fstatat(lookupFd, name, &link, AT_SYMLINK_NOFOLLOW) == 0) {
                return link.st_size;
            }
            return 0;
        }
        struct stat st;
        if (::fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            return 0;

        if (S_ISLNK(st.st_mode)) {
            struct stat target;
            const uint owner = ::fstatat(fd, name, &target, 0) == 0 ? uint(target.st_uid) : UnknownOwner;
            if (owner != m_ownerUid || childParent->childPrefixLength + nameLength >= PathMax)
                return 0;
            if (lookupFd == fd)
                return st.st_size;
            if (lookupFd >= 0 && ::fstatat(lookupFd, name, &st, AT_SYMLINK_NOFOLLOW) == 0)
                return st.st_size;
            return 0;
        }
        if (st.st_uid != m_ownerUid)
            return 0;
        if (!S_ISDIR(st.st_mode))
            return st.st_size;

        const std::string_view nameView(name, nameLength);
        const ExclusionNode *exclusion = childParent->exclusion ? childParent->exclusion->child(nameView) : nullptr;
        const std::size_t pathLength = childParent->childPrefixLength + nameLength;
        // lookupFd < 0: the cleaned top path names nothing.
        if (!(exclusion && exclusion->excluded) && pathLength < PathMax && lookupFd >= 0)
            found.push_back(childNode(childParent, nameView, pathLength, exclusion));
        return 0;
    });
}

// The same entries as list() counts for the owner, recorded for every owner.
// The top of a keeping walk is a cleaned absolute path, so an entry's path is
// the same whether it is listed or looked up, and a link or a folder is never
// looked up elsewhere (list()'s childParent).
Walk::Listing Walk::keepListing(int fd, DirNode *self, std::vector<DirNode *> &found, std::vector<char> &buffer)
{
    KeptListing &kept = *self->kept->listing;
    return forEachEntry(fd, buffer, [&](const char *name, std::size_t nameLength, unsigned char) -> qint64 {
        const std::size_t pathLength = self->childPrefixLength + nameLength;
        struct stat st;
        // Past the limit the kernel refuses the path, and the entry counts
        // for nobody.
        if (pathLength >= PathMax || ::fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            return 0;
        const std::string_view nameView(name, nameLength);
        if (S_ISLNK(st.st_mode)) {
            kept.links.push_back({std::string(nameView), quint64(st.st_size)});
        } else if (!S_ISDIR(st.st_mode)) {
            if (st.st_nlink > 1)
                kept.sharedFiles.emplace_back(nameView);
            else
                kept.addBytes(uint(st.st_uid), quint64(st.st_size));
        } else {
            auto folder = std::make_unique<KeptFolder>();
            folder->parent = self->kept;
            folder->name.assign(nameView);
            folder->device = quint64(st.st_dev);
            folder->inode = quint64(st.st_ino);
            folder->owner = uint(st.st_uid);
            const ExclusionNode *exclusion = self->exclusion ? self->exclusion->child(nameView) : nullptr;
            if (m_keeping->descend && folder->owner == m_ownerUid && !(exclusion && exclusion->excluded)) {
                DirNode *child = childNode(self, nameView, pathLength, exclusion);
                child->kept = folder.get();
                found.push_back(child);
            }
            kept.subfolders.push_back(std::move(folder));
        }
        return 0;
    });
}

// Watches the folder open at `fd` before it is listed, so that any change
// made after the listing began comes as a notice. A folder that cannot be
// watched is walked afresh by every query that enters it.
bool Walk::startKeeping(KeptFolder *folder, int fd)
{
    // What was opened, whatever the parent's listing saw a moment before: if
    // they differ, the parent has a notice and is listed again. A watch of
    // the folder that was there before is of no use for this one.
    struct stat st;
    const bool identified = ::fstat(fd, &st) == 0;
    if (folder->watch >= 0
        && (!identified || folder->device != quint64(st.st_dev) || folder->inode != quint64(st.st_ino))) {
        m_keeping->watches.unwatch(folder->watch, m_keeping->subscriber, folder);
        folder->watch = -1;
    }
    if (identified) {
        folder->device = quint64(st.st_dev);
        folder->inode = quint64(st.st_ino);
    }
    if (folder->watch < 0) {
        FolderWatches::Refusal refusal = FolderWatches::Refusal::None;
        folder->watch = m_keeping->watches.watch(fd, m_keeping->subscriber, folder, &refusal);
        if (folder->watch < 0) {
            folder->state = KeptFolder::State::WalkedEachTime;
            folder->waitsForRoom = refusal == FolderWatches::Refusal::NoRoom;
            return false;
        }
    }
    m_listedFolders.fetch_add(1, std::memory_order_relaxed);
    folder->state = KeptFolder::State::Listed;
    folder->changed = false;
    folder->waitsForRoom = false;
    folder->listing = std::make_unique<KeptListing>();
    return true;
}

DirNode *Walk::childNode(DirNode *parent, std::string_view name, std::size_t pathLength,
                         const ExclusionNode *exclusion)
{
    auto *child = new DirNode;
    child->parent = parent;
    child->depth = parent->depth + 1;
    child->childPrefixLength = pathLength + 1;
    child->filePrefixLength = pathLength + 1;
    child->exclusion = exclusion;
    child->name.assign(name);
    parent->references.fetch_add(1, std::memory_order_relaxed);
    return child;
}

// Drops one reference; a node without any closes its descriptor and lets go
// of its parent, up the chain without recursion.
void Walk::release(DirNode *node)
{
    while (node && node->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        DirNode *parent = node->parent;
        if (node->fd >= 0) {
            ::close(node->fd);
            if (parent)
                m_keptDescriptors.fetch_sub(1, std::memory_order_relaxed);
        }
        delete node;
        node = parent;
    }
}

} // namespace

DirectoryWalker::DirectoryWalker(uint ownerUid, const QSet<QString> &excluded)
    : m_ownerUid(ownerUid),
      m_excluded(excluded),
      m_maxThreads(qMax(1, QThread::idealThreadCount())),
      m_entriesBeforeHelpers(DefaultEntriesBeforeHelpers)
{
}

void DirectoryWalker::setMaxThreads(int threads)
{
    m_maxThreads = qMax(1, threads);
}

void DirectoryWalker::setEntriesBeforeHelpers(qint64 entries)
{
    m_entriesBeforeHelpers = entries;
}

qint64 DirectoryWalker::size(const QString &path) const
{
    TestHold::waitFor("PLINTHD_TEST_HOLD_WALKS");
    Walk walk(m_ownerUid, m_maxThreads, m_entriesBeforeHelpers);
    return walk.run(path, m_excluded);
}

int DirectoryWalker::keep(KeptFolder *top, const QByteArray &cleanPath, const WalkExclusions::Node *exclusions,
                          FolderWatches &watches, const void *subscriber, Scope scope) const
{
    TestHold::waitFor("PLINTHD_TEST_HOLD_WALKS");
    const Walk::Keeping keeping{watches, subscriber, scope == Scope::Tree};
    Walk walk(m_ownerUid, m_maxThreads, m_entriesBeforeHelpers, &keeping);
    return walk.keep(top, cleanPath, exclusions);
}
