// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PARTITIONMANAGER_H
#define PLINTHD_PARTITIONMANAGER_H

#include "partition.h"

#include <QAtomicInteger>
#include <QMutex>
#include <QObject>
#include <QVector>

#include <memory>

class QSocketNotifier;

// Watches the device's partitions: block devices as udev describes them, the
// mount table as libmount reads it (/proc/self/mountinfo), sizes from
// statvfs().
//
// What a scan reads. Two parts change in different ways:
//   the layout    which partitions there are, their labels, file system and
//                 storage types, drives and mount paths: udev's description
//                 of every block device, and the mount table. None of it
//                 changes without an announcement: the kernel announces a
//                 block device that comes, goes or changes size, udev one
//                 whose description it has rewritten, and the kernel marks
//                 the mount table at every mount and unmount. Each is queued
//                 before the call that made the change returns. So the layout
//                 is kept between scans (LayoutCache) and read again only
//                 after an announcement, or where one may have been lost: by
//                 the next scan after a monitor's queue overflowed (ENOBUFS
//                 on its socket), and by every scan when a monitor could not
//                 be made or the mount table is a fixture file nobody watches.
//   the figures   of every mounted file system (statvfs() of its mount path,
//                 with a look before and after that it is still mounted
//                 there): they change at any write, with no announcement, so
//                 every scan reads them afresh.
// A scan therefore gives what reading everything afresh would give at that
// moment, including every change announced before it began; on an unchanged
// device it costs one poll() of the monitors and three system calls for each
// mounted partition it lists, however many block devices there are.
//
// Which partitions are listed, and with which storage types:
//   System    the partition mounted at "/"; when "/home" is not a mount of its
//             own, the root is System and User.
//   User      the partition mounted at "/home".
//   External  every partition of a removable drive, mounted or not. A drive is
//             removable when the kernel sets its removable flag, when it hangs
//             on USB, or when it is an SD card (the MMC "type" attribute is
//             "SD"; an eMMC says "MMC" and is internal). A whole disk without
//             a partition table counts as its own single partition. A
//             removable partition mounted at "/" or "/home" is System or User
//             instead.
//   Mass      an internal (non-removable) partition mounted under "/media/",
//             "/mnt/" or "/run/media/": a data volume of its own, neither the
//             system nor the user partition.
// Anything else (unmounted internal partitions, swap, boot partitions, virtual
// file systems) is not listed. The root and /home are listed even when no
// block device backs them (an overlay or network root); their device name is
// then the last component of the mount source and their drive map is empty
// of names. The order is the kernel names' natural order (sda2 before sda10),
// then those mount-only partitions.
//
// Notifications, on the thread that created the manager, after udev or the
// mount table reported a change (a QSocketNotifier each; nothing polls):
//   partitionAdded    a partition appeared, or one left the mount table
//                     (it is a bare partition again)
//   storageAdded      a partition entered the mount table or moved to
//                     another mount path
//   partitionRemoved  a partition disappeared (its last state is passed)
// Changes of free space are not notified.
//
// Threads. A scan (the layout when it must be read, statvfs() of every
// mount) can take as long as the slowest medium: a card that stopped
// answering, a network file system whose server went. So after an event the
// manager's thread only notices it; the scan, the draining of the monitors
// included, runs on a thread of its own, and its result is queued back to the
// manager's thread, which stores it and sends the notifications. The
// manager's thread never takes the lock of libudev and libmount
// (partitionSourceLock()) while scans run, so it never waits for one. Events
// that arrive while a scan runs are not lost and do not pile up: they make one
// more scan after it, however many they were. Scans started earlier never
// replace the result of one started later (see m_nextGeneration).
//
// The first scan runs in the constructor, on the caller's thread: the daemon
// makes the manager at start-up, before it serves its bus name, and starts
// from a picture that is already there. Deleting the manager does not wait
// for a scan that runs; that scan finishes on its own and its result is
// dropped.
//
// partitions() may be called from any thread; it copies the last stored
// picture and waits for nothing else. refresh() may be called from any thread
// too, and scans on that thread: it takes as long as a scan does, so the
// thread that serves the bus must not call it once the daemon serves. Scans
// share the kept layout: one reads it at a time, and a scan that finds it
// being read waits for that reading (never for a medium) and uses it.
//
// Its source is a little longer than its neighbours': the scan thread's two
// helpers (what a scan reads, and the mailbox where it leaves its result)
// live there, private to the manager, because they exist only for its scans
// and keep its rules on generations and on closing.
class PartitionManager : public QObject
{
    Q_OBJECT

public:
    explicit PartitionManager(QObject *parent = nullptr);
    // Reads the mount table from another file, for tests that describe the
    // mounts in a fixture file. That file is not watched: its changes are
    // noticed at the next udev event or refresh().
    explicit PartitionManager(const QString &mountTablePath, QObject *parent = nullptr);
    ~PartitionManager() override;

    QVector<Partition> partitions(Partition::StorageTypes types = Partition::Any) const;

    // Scans on the calling thread (see "What a scan reads" above): the
    // figures of every mounted partition, and the layout when something was
    // announced since it was last read. Does not notify: notifications follow
    // the events of udev and the mount table only.
    void refresh();

signals:
    void partitionAdded(const Partition &partition);
    void storageAdded(const Partition &partition);
    void partitionRemoved(const Partition &partition);

private:
    class ScanSources;
    class ScanMailbox;

    void watch(int descriptor);
    void noticeChange(QSocketNotifier *notifier);
    void startScan();
    Q_INVOKABLE void finishScan();
    void store(const QVector<Partition> &partitions, quint64 generation);
    void announce(const QVector<Partition> &partitions);
    static QVector<Partition> withoutUnprobedArrivals(const QVector<Partition> &scanned,
                                                      const QVector<Partition> &listed);

    // Shared with the scan that runs, so that either may be the last to let go.
    const std::shared_ptr<ScanSources> m_sources;
    const std::shared_ptr<ScanMailbox> m_mailbox;
    // One a monitor, touched on the manager's thread only. Each is switched
    // off from its monitor's event until the scan that drained the monitor is
    // back: the descriptor stays readable until then.
    QVector<QSocketNotifier *> m_notifiers;
    bool m_scanning = false; // from an event until its scan is back

    // Scans run without a lock; each takes a generation number when it starts
    // so that a slow older scan cannot replace the result of a newer one.
    QAtomicInteger<quint64> m_nextGeneration;
    mutable QMutex m_lock; // guards the two members below, held only to copy
    QVector<Partition> m_partitions;
    quint64 m_storedGeneration = 0;

    // What the signals have told so far; touched on the manager's thread only.
    QVector<Partition> m_announced;
};

#endif // PLINTHD_PARTITIONMANAGER_H
