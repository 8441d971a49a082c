// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_OSIDENTITYPROBE_H
#define PLINTHD_OSIDENTITYPROBE_H

#include <QDBusPendingCall>

// The two facts of the OS's identity that are probed once, at start-up:
// whether the build is certified (a package in the installed-package
// database) and whether it runs in a virtual machine or a container
// (systemd's "Virtualization").
//
// The question to systemd is sent when the probe is made and its answer taken
// by collect(), so that the bus round trip overlaps the caller's other probes.
// collect() is the one place where the main thread waits on a peer: it runs
// before the event loop serves anything, and it waits a bounded time.
class OsIdentityProbe
{
public:
    OsIdentityProbe();

    void collect();

    bool isCertified() const { return m_certified; }
    bool isEmulated() const { return m_emulated; }

private:
    QDBusPendingCall m_virtualization;
    bool m_certified = false;
    bool m_emulated = false;
};

#endif // PLINTHD_OSIDENTITYPROBE_H
