// SPDX-License-Identifier: BSD-3-Clause
#include "mountmonitor.h"

#include "platformlogging.h"
#include "sourcelock.h"

#include <QSocketNotifier>

#include <libmount/libmount.h>

MountMonitor::MountMonitor(QObject *parent)
    : QObject(parent)
{
    QMutexLocker locker(&partitionSourceLock());
    m_monitor = mnt_new_monitor();
    const int fd = m_monitor && mnt_monitor_enable_kernel(m_monitor, 1) == 0 ? mnt_monitor_get_fd(m_monitor) : -1;
    if (fd < 0) {
        qCWarning(lcPartitions) << "Can't watch the mount table; mounts will not be noticed";
        return;
    }
    m_notifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &MountMonitor::drain);
}

MountMonitor::~MountMonitor()
{
    delete m_notifier;
    QMutexLocker locker(&partitionSourceLock());
    if (m_monitor)
        mnt_unref_monitor(m_monitor);
}

bool MountMonitor::isActive() const
{
    return m_notifier;
}

void MountMonitor::drain()
{
    // Taking the changes off the monitor re-arms it; one rescan covers them all.
    const char *filename = nullptr;
    int type = 0;
    int changes = 0;
    {
        QMutexLocker locker(&partitionSourceLock());
        while (mnt_monitor_next_change(m_monitor, &filename, &type) == 0)
            ++changes;
    }
    if (changes > 0)
        emit changed();
}
