// SPDX-License-Identifier: BSD-3-Clause
#include "udevmonitor.h"

#include "sourcelock.h"
#include "storagelogging.h"

#include <libudev.h>

#include <cerrno>

UdevMonitor::UdevMonitor(Source source)
{
    QMutexLocker locker(&partitionSourceLock());
    m_context = udev_new();
    if (m_context)
        m_monitor = udev_monitor_new_from_netlink(m_context, source == Source::Kernel ? "kernel" : "udev");
    // The kernel's events of every subsystem reach the socket; the filter
    // lets only block devices' through to drain().
    if (!m_monitor
            || udev_monitor_filter_add_match_subsystem_devtype(m_monitor, "block", nullptr) < 0
            || udev_monitor_enable_receiving(m_monitor) < 0)
        return;
    m_descriptor = udev_monitor_get_fd(m_monitor);
}

UdevMonitor::~UdevMonitor()
{
    QMutexLocker locker(&partitionSourceLock());
    if (m_monitor)
        udev_monitor_unref(m_monitor);
    if (m_context)
        udev_unref(m_context);
}

int UdevMonitor::descriptor() const
{
    return m_descriptor;
}

// Several events may be queued; one rescan covers them all.
//
// The socket's receive buffer is as large as the kernel lets a process make
// it without CAP_NET_ADMIN (libudev asks for more with SO_RCVBUFFORCE, which
// the sandbox refuses), so a burst of events (a hub or a card reader with
// many slots) can overflow it while the daemon is busy. The kernel then drops
// events and reports ENOBUFS once on the next read. What was dropped is not
// known, so it is treated as a change of everything: the rescan that follows
// reads the whole picture afresh, and the events queued after the overflow
// are still read.
bool UdevMonitor::drain()
{
    if (m_descriptor < 0)
        return false;
    int events = 0;
    bool overflowed = false;
    {
        QMutexLocker locker(&partitionSourceLock());
        for (;;) {
            errno = 0;
            udev_device *device = udev_monitor_receive_device(m_monitor);
            if (device) {
                udev_device_unref(device);
                ++events;
            } else if (errno == ENOBUFS && !overflowed) {
                overflowed = true;
            } else {
                break;
            }
        }
    }
    if (overflowed)
        qCDebug(lcPartitions) << "Block device events overflowed the receive buffer; rescanning every block device";
    return events > 0 || overflowed;
}
