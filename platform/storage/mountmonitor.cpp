// SPDX-License-Identifier: BSD-3-Clause
#include "mountmonitor.h"

#include "sourcelock.h"

#include <libmount/libmount.h>

MountMonitor::MountMonitor()
{
    QMutexLocker locker(&partitionSourceLock());
    m_monitor = mnt_new_monitor();
    const int fd = m_monitor && mnt_monitor_enable_kernel(m_monitor, 1) == 0 ? mnt_monitor_get_fd(m_monitor) : -1;
    m_descriptor = fd < 0 ? -1 : fd;
}

MountMonitor::~MountMonitor()
{
    QMutexLocker locker(&partitionSourceLock());
    if (m_monitor)
        mnt_unref_monitor(m_monitor);
}

int MountMonitor::descriptor() const
{
    return m_descriptor;
}

bool MountMonitor::drain()
{
    if (m_descriptor < 0)
        return false;
    // Taking the changes off the monitor re-arms it; one rescan covers them all.
    const char *filename = nullptr;
    int type = 0;
    int changes = 0;
    QMutexLocker locker(&partitionSourceLock());
    while (mnt_monitor_next_change(m_monitor, &filename, &type) == 0)
        ++changes;
    return changes > 0;
}
