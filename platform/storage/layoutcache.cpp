// SPDX-License-Identifier: BSD-3-Clause
#include "layoutcache.h"

#include "mounttable.h"

LayoutCache::LayoutCache(const QString &mountTablePath)
    : m_mountTablePath(mountTablePath)
    , m_watch(mountTablePath == MountTable::kernelTablePath())
{
}

// The watch is drained before the layout is read, so that an event that
// comes while it is read stays queued and makes the next call read it again.
PartitionScanner::Layout LayoutCache::current()
{
    QMutexLocker locker(&m_lock);
    const bool changed = m_watch.changed();
    if (changed || !m_read) {
        m_layout = PartitionScanner::layout(m_mountTablePath);
        m_read = true;
    }
    return m_layout;
}
