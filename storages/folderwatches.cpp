// SPDX-License-Identifier: BSD-3-Clause
#include "folderwatches.h"

#include "logging.h"

#include <QByteArray>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/vfs.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcFolders, "plinthd.folders", QtWarningMsg)

namespace {

const char *const MaxWatchesVariable = "PLINTHD_MAX_FOLDER_WATCHES";
const char *const MountTablePath = "/proc/self/mountinfo";

// Everything that can change what a walk of the folder counts: an entry's
// size (written, truncated), owner (attributes), coming and going (created,
// deleted, moved in or out), and the folder's own end. Every watch asks for
// the same, as the kernel keeps one mask per watched folder.
constexpr quint32 FolderChanges = IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO
        | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// Notices are read in chunks of this size; a notice with a name of the
// longest kind still fits.
constexpr std::size_t ReadBufferSize = 64 * 1024;

// File systems whose every change is made by this kernel, and so reported
// to inotify: local disk and memory file systems. Not in the list, and so
// walked at every query: network file systems (a change made by another
// machine is never reported here), FUSE (its server may change files behind
// the kernel's back), overlays (a change made in a layer beneath is not
// reported above), and pseudo file systems.
bool reportsEveryChange(__fsword_t type)
{
    switch (quint32(type)) {
    case EXT4_SUPER_MAGIC: // ext2 and ext3 too
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case F2FS_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case RAMFS_MAGIC:
    case MSDOS_SUPER_MAGIC: // FAT of SD cards
    case EXFAT_SUPER_MAGIC:
    case NILFS_SUPER_MAGIC:
    case REISERFS_SUPER_MAGIC:
    case SQUASHFS_MAGIC:    // read-only images
    case EROFS_SUPER_MAGIC_V1:
    case ISOFS_SUPER_MAGIC:
    case UDF_SUPER_MAGIC:
        return true;
    default:
        return false;
    }
}

} // namespace

FolderWatches::FolderWatches(int maxWatches)
    : m_maxWatches(qMax(0, maxWatches))
{
    if (m_maxWatches == 0)
        return;
    m_notifyFd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_notifyFd < 0)
        qCWarning(lcPlinthd) << "Can't watch folders for changes, every storage query walks them:"
                             << std::strerror(errno);
}

FolderWatches::~FolderWatches()
{
    if (m_notifyFd >= 0)
        ::close(m_notifyFd);
    if (m_mountTableFd >= 0)
        ::close(m_mountTableFd);
}

int FolderWatches::maxWatchesFromEnvironment()
{
    const QByteArray value = qgetenv(MaxWatchesVariable);
    if (value.isEmpty())
        return DefaultMaxWatches;
    bool ok = false;
    const int maxWatches = value.toInt(&ok);
    if (!ok || maxWatches < 0) {
        qCWarning(lcPlinthd).noquote() << MaxWatchesVariable << "is not a count of folders:" << value
                                       << "- using" << DefaultMaxWatches;
        return DefaultMaxWatches;
    }
    return maxWatches;
}

void FolderWatches::subscribe(const void *subscriber)
{
    std::lock_guard<std::mutex> lock(m_lock);
    m_inboxes[subscriber];
}

void FolderWatches::unsubscribe(const void *subscriber)
{
    std::lock_guard<std::mutex> lock(m_lock);
    for (auto it = m_registrations.begin(); it != m_registrations.end();) {
        auto &registrations = it->second;
        registrations.erase(std::remove_if(registrations.begin(), registrations.end(),
                                           [subscriber](const Registration &r) { return r.subscriber == subscriber; }),
                            registrations.end());
        if (registrations.empty()) {
            ::inotify_rm_watch(m_notifyFd, it->first);
            --m_watchCount;
            it = m_registrations.erase(it);
        } else {
            ++it;
        }
    }
    m_inboxes.erase(subscriber);
}

int FolderWatches::watch(int folderFd, const void *subscriber, const void *target, Refusal *refusal)
{
    Refusal why = Refusal::NotWatchable;
    int watch = -1;
    struct statfs fileSystem;
    if (m_notifyFd >= 0 && ::fstatfs(folderFd, &fileSystem) == 0 && reportsEveryChange(fileSystem.f_type)) {
        // The descriptor's own link in /proc names the very folder that was
        // opened, however its path may have changed since.
        char path[sizeof("/proc/self/fd/") + 3 * sizeof(int)];
        std::snprintf(path, sizeof(path), "/proc/self/fd/%d", folderFd);
        std::lock_guard<std::mutex> lock(m_lock);
        if (m_watchCount >= m_maxWatches) {
            why = Refusal::NoRoom;
        } else {
            watch = ::inotify_add_watch(m_notifyFd, path, FolderChanges);
            if (watch >= 0) {
                auto &registrations = m_registrations[watch];
                if (registrations.empty())
                    ++m_watchCount;
                registrations.push_back({subscriber, target});
                why = Refusal::None;
            } else if (errno == ENOSPC) {
                why = Refusal::NoRoom;
            }
        }
    }
    if (refusal)
        *refusal = why;
    return watch;
}

void FolderWatches::unwatch(int watch, const void *subscriber, const void *target)
{
    std::lock_guard<std::mutex> lock(m_lock);
    const auto found = m_registrations.find(watch);
    if (found != m_registrations.end()) {
        auto &registrations = found->second;
        registrations.erase(std::remove_if(registrations.begin(), registrations.end(),
                                           [=](const Registration &r) {
                                               return r.subscriber == subscriber && r.target == target;
                                           }),
                            registrations.end());
        if (registrations.empty()) {
            ::inotify_rm_watch(m_notifyFd, watch);
            --m_watchCount;
            m_registrations.erase(found);
        }
    }
    auto &inbox = m_inboxes[subscriber];
    inbox.erase(std::remove_if(inbox.begin(), inbox.end(), [target](const Notice &n) { return n.target == target; }),
                inbox.end());
}

std::vector<FolderWatches::Notice> FolderWatches::take(const void *subscriber)
{
    std::lock_guard<std::mutex> lock(m_lock);
    readKernelQueue();
    readMountTable();
    std::vector<Notice> notices;
    notices.swap(m_inboxes[subscriber]);
    return notices;
}

bool FolderWatches::hasRoom() const
{
    std::lock_guard<std::mutex> lock(m_lock);
    return m_notifyFd >= 0 && m_watchCount < m_maxWatches;
}

int FolderWatches::watchCount() const
{
    std::lock_guard<std::mutex> lock(m_lock);
    return m_watchCount;
}

int FolderWatches::maxWatches() const
{
    return m_maxWatches;
}

// With the lock held.
void FolderWatches::readKernelQueue()
{
    if (m_notifyFd < 0)
        return;
    if (m_readBuffer.empty())
        m_readBuffer.resize(ReadBufferSize);
    char *const buffer = m_readBuffer.data();
    for (;;) {
        const ssize_t length = ::read(m_notifyFd, buffer, m_readBuffer.size());
        if (length <= 0)
            break; // EAGAIN: the queue is empty
        for (ssize_t offset = 0; offset < length;) {
            const auto *event = reinterpret_cast<const struct inotify_event *>(buffer + offset);
            offset += ssize_t(sizeof(struct inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                qCDebug(lcFolders) << "Change notices were lost: every kept folder is listed again";
                Notice notice;
                notice.kind = Kind::Overflow;
                deliverToAll(notice);
                continue;
            }
            const auto found = m_registrations.find(event->wd);
            if (found == m_registrations.end())
                continue; // a watch given up, whose last notices were still queued
            Notice notice;
            notice.mask = event->mask;
            if (event->len > 0)
                notice.name.assign(event->name, ::strnlen(event->name, event->len));
            for (const Registration &registration : found->second) {
                notice.target = registration.target;
                m_inboxes[registration.subscriber].push_back(notice);
            }
            // The kernel has ended the watch (the folder is gone, or its file
            // system was unmounted).
            if (event->mask & IN_IGNORED)
                forget(event->wd);
        }
    }
}

// With the lock held. The kernel marks the table's file when a mount or an
// unmount happens in this mount namespace; only then is it read again.
void FolderWatches::readMountTable()
{
    if (m_notifyFd < 0)
        return;
    if (m_mountTableFd < 0) {
        m_mountTableFd = ::open(MountTablePath, O_RDONLY | O_CLOEXEC);
        if (m_mountTableFd < 0)
            return;
    } else {
        struct pollfd table = {m_mountTableFd, POLLPRI, 0};
        if (::poll(&table, 1, 0) <= 0 || !(table.revents & (POLLPRI | POLLERR)))
            return;
    }
    QByteArray content;
    char chunk[4096];
    ::lseek(m_mountTableFd, 0, SEEK_SET);
    for (;;) {
        const ssize_t length = ::read(m_mountTableFd, chunk, sizeof(chunk));
        if (length <= 0)
            break;
        content.append(chunk, int(length));
    }
    std::vector<MountPoints::Mount> mounts = MountPoints::parse(content);
    if (m_mountTableRead) {
        for (const std::string &point : MountPoints::changed(m_mounts, mounts)) {
            Notice notice;
            notice.kind = Kind::Mount;
            notice.name = point;
            deliverToAll(notice);
        }
    }
    m_mountTableRead = true;
    m_mounts.swap(mounts);
}

// With the lock held.
void FolderWatches::deliverToAll(const Notice &notice)
{
    for (auto &inbox : m_inboxes)
        inbox.second.push_back(notice);
}

// With the lock held: the kernel has removed the watch itself.
void FolderWatches::forget(int watch)
{
    if (m_registrations.erase(watch) > 0)
        --m_watchCount;
}
