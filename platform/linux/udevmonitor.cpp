#include "udevmonitor.h"

#include "partitionlogging.h"

#include <QSocketNotifier>

#include <libudev.h>

UdevMonitor::UdevMonitor(QObject *parent)
    : QObject(parent)
{
    m_context = udev_new();
    if (m_context)
        m_monitor = udev_monitor_new_from_netlink(m_context, "udev");
    if (!m_monitor
            || udev_monitor_filter_add_match_subsystem_devtype(m_monitor, "block", nullptr) < 0
            || udev_monitor_enable_receiving(m_monitor) < 0) {
        qCWarning(lcPartitions) << "Can't watch block devices; drive changes will not be noticed";
        return;
    }
    m_notifier = new QSocketNotifier(udev_monitor_get_fd(m_monitor), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &UdevMonitor::drain);
}

UdevMonitor::~UdevMonitor()
{
    delete m_notifier;
    if (m_monitor)
        udev_monitor_unref(m_monitor);
    if (m_context)
        udev_unref(m_context);
}

bool UdevMonitor::isActive() const
{
    return m_notifier;
}

// Several events may be queued; one rescan covers them all.
void UdevMonitor::drain()
{
    int events = 0;
    while (udev_device *device = udev_monitor_receive_device(m_monitor)) {
        udev_device_unref(device);
        ++events;
    }
    if (events > 0)
        emit changed();
}
