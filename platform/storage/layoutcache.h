// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_LAYOUTCACHE_H
#define PLINTHD_LAYOUTCACHE_H

#include "layoutwatch.h"
#include "partitionscanner.h"

#include <QMutex>
#include <QString>

// The partitions' layout kept between scans: which partitions there are,
// their labels, file system types, storage types, drives and mount paths
// (PartitionScanner::Layout). Reading it enumerates every block device
// through udev and reads the mount table, and nothing of it changes without
// an event (LayoutWatch), so it is read again only after one, or when an
// event may have been lost. What does change without an event, the figures
// of each mounted file system, is not part of it: every scan measures them
// afresh (PartitionScanner::measure).
//
// Any thread may ask for the layout; one reads it at a time, under the cache's
// own lock, and the others wait for that reading rather than answer from the
// layout it replaces. The lock is held while the watch is drained and the
// layout read (sysfs, the udev database, the mount table), never while a file
// system is measured.
class LayoutCache
{
public:
    explicit LayoutCache(const QString &mountTablePath);
    LayoutCache(const LayoutCache &) = delete;
    LayoutCache &operator=(const LayoutCache &) = delete;

    // The layout as it is now: the kept one when nothing it is made of has
    // announced a change since it was read, else one read now. Every change
    // announced before the call is in it.
    PartitionScanner::Layout current();

private:
    const QString m_mountTablePath;
    QMutex m_lock;
    LayoutWatch m_watch;
    PartitionScanner::Layout m_layout;
    bool m_read = false;
};

#endif // PLINTHD_LAYOUTCACHE_H
