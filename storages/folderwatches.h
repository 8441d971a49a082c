// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_FOLDERWATCHES_H
#define PLINTHD_FOLDERWATCHES_H

#include "mountpoints.h"

#include <QLoggingCategory>
#include <QtGlobal>

#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

// What the folders kept between queries do, at debug level
// (QT_LOGGING_RULES=plinthd.folders.debug=true, or PLINTHD_DEBUG).
Q_DECLARE_LOGGING_CATEGORY(lcFolders)

// The kernel's change notices for the folders the storage side keeps figures
// of: one inotify instance for the whole daemon, a bound on how many folders
// it watches, and the changes of the mount table, which hide or show folders
// without a notice for them.
//
// What keeps figures (a kept folder tree, the package sums) subscribes, then
// watches folders on behalf of targets of its own (a folder of its tree) and
// takes its notices before it answers a query. take() first reads every
// notice the kernel has queued, for all subscribers, without waiting: the
// kernel queues a notice before the call that made the change returns, so
// whatever finished before take() is in what it hands out. Notices are read
// only then, never in between, so a device nobody asks costs no wake-up;
// when the kernel's queue fills up meanwhile, every subscriber is told that
// notices were lost and drops what it keeps.
//
// Only file systems whose every change goes through this kernel are watched:
// a network or FUSE file system can change behind its back, and a folder
// there is refused, to be walked at every query instead.
//
// Threads: the query workers and the walk pool's threads, never the main
// thread. One lock guards everything here and is held for a read of the
// kernel's queue or a change of the watch table, never across a medium.
class FolderWatches
{
public:
    // What a notice is about.
    enum class Kind {
        Folder,   // `mask` and `name` of the kernel's notice for `target`
        Overflow, // the kernel dropped notices: nothing kept can be trusted
        Mount     // a mount appeared or went at `name`
    };
    struct Notice
    {
        Kind kind = Kind::Folder;
        const void *target = nullptr;
        quint32 mask = 0;
        std::string name;
    };
    // Why a folder could not be watched.
    enum class Refusal {
        None,
        NoRoom,     // the bound, or the kernel's own, is reached: may work later
        NotWatchable // a file system that may change unseen, or no notices at all
    };

    // Watches at most `maxWatches` folders at once.
    explicit FolderWatches(int maxWatches);
    ~FolderWatches();
    FolderWatches(const FolderWatches &) = delete;
    FolderWatches &operator=(const FolderWatches &) = delete;

    // The bound the daemon uses: PLINTHD_MAX_FOLDER_WATCHES, else DefaultMaxWatches.
    static int maxWatchesFromEnvironment();
    static constexpr int DefaultMaxWatches = 8192;

    void subscribe(const void *subscriber);
    void unsubscribe(const void *subscriber);

    // Watches the folder open at `folderFd` for `subscriber` on behalf of
    // `target`; the watch's number, or -1 and why not.
    int watch(int folderFd, const void *subscriber, const void *target, Refusal *refusal = nullptr);
    // Stops the watch for that target, and forgets its notices not yet taken.
    void unwatch(int watch, const void *subscriber, const void *target);
    // Reads what the kernel has queued and hands out the subscriber's notices.
    std::vector<Notice> take(const void *subscriber);

    bool hasRoom() const;
    int watchCount() const;
    int maxWatches() const;

private:
    struct Registration
    {
        const void *subscriber;
        const void *target;
    };

    void readKernelQueue();
    void readMountTable();
    void deliverToAll(const Notice &notice);
    void forget(int watch);

    const int m_maxWatches;
    mutable std::mutex m_lock;
    int m_notifyFd = -1;
    // Where the kernel's notices are read into, made on the first read (the
    // allocator's alignment suits struct inotify_event).
    std::vector<char> m_readBuffer;
    int m_mountTableFd = -1;
    bool m_mountTableRead = false;
    std::vector<MountPoints::Mount> m_mounts;
    int m_watchCount = 0;
    std::unordered_map<int, std::vector<Registration>> m_registrations;
    std::unordered_map<const void *, std::vector<Notice>> m_inboxes;
};

#endif // PLINTHD_FOLDERWATCHES_H
