// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_MOUNTMONITOR_H
#define PLINTHD_MOUNTMONITOR_H

struct libmnt_monitor;

// Tells when the kernel's mount table of this process changes. libmount waits
// on /proc/self/mountinfo, which the kernel marks when a mount or unmount
// happens in our mount namespace: no timer, no polling. As with UdevMonitor,
// the owner watches descriptor() for reading and calls drain(), on any
// thread, one thread at a time.
class MountMonitor
{
public:
    MountMonitor();
    ~MountMonitor();
    MountMonitor(const MountMonitor &) = delete;
    MountMonitor &operator=(const MountMonitor &) = delete;

    // The descriptor to watch for reading; -1 when mounts cannot be watched
    // (the owner says what that costs).
    int descriptor() const;
    // Takes every reported change off the monitor; true when anything came.
    bool drain();

private:
    libmnt_monitor *m_monitor = nullptr;
    int m_descriptor = -1;
};

#endif // PLINTHD_MOUNTMONITOR_H
