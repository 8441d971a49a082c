// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_MOUNTMONITOR_H
#define PLINTHD_MOUNTMONITOR_H

#include <QObject>

struct libmnt_monitor;
class QSocketNotifier;

// Tells when the kernel's mount table of this process changes. libmount waits
// on /proc/self/mountinfo, which the kernel marks when a mount or unmount
// happens in our mount namespace: no timer, no polling.
class MountMonitor : public QObject
{
    Q_OBJECT

public:
    explicit MountMonitor(QObject *parent = nullptr);
    ~MountMonitor() override;

    bool isActive() const;

signals:
    void changed();

private:
    void drain();

    libmnt_monitor *m_monitor = nullptr;
    QSocketNotifier *m_notifier = nullptr;
};

#endif // PLINTHD_MOUNTMONITOR_H
