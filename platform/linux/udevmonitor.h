// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_UDEVMONITOR_H
#define PLINTHD_UDEVMONITOR_H

#include <QObject>

struct udev;
struct udev_monitor;
class QSocketNotifier;

// Tells when udev has finished processing an event of a block device. It
// sleeps on udev's netlink socket: no timer, no polling.
class UdevMonitor : public QObject
{
    Q_OBJECT

public:
    explicit UdevMonitor(QObject *parent = nullptr);
    ~UdevMonitor() override;

    bool isActive() const;

signals:
    void changed();

private:
    void drain();

    udev *m_context = nullptr;
    udev_monitor *m_monitor = nullptr;
    QSocketNotifier *m_notifier = nullptr;
};

#endif // PLINTHD_UDEVMONITOR_H
