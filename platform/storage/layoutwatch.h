// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_LAYOUTWATCH_H
#define PLINTHD_LAYOUTWATCH_H

#include "mountmonitor.h"
#include "udevmonitor.h"

#include <memory>

// Whether the partitions' layout may have changed since the last time this
// was asked (see LayoutCache for what the layout is). Everything the layout
// is read from announces its changes:
//   - block devices that come, go or change (a resized loop device, a
//     medium swapped in a card reader): the kernel's event, as soon as the
//     device is there or gone;
//   - what udev found on them (labels, file system types, partition names,
//     the /dev/disk links a mount may name): udev's event, sent once its
//     database is written;
//   - mounts and unmounts in this process's mount namespace: the kernel
//     marks the mount table.
// Each of the three has a monitor of its own here, apart from the ones whose
// events the partition manager announces, so that reading them here takes
// nothing from the announcements.
//
// What cannot vouch for a kept layout, so that changed() says true:
//   - a source that is not watched: a monitor that could not be made, or a
//     mount table that is a fixture file (tests);
//   - a socket whose events overflowed its receive buffer (ENOBUFS): what
//     was dropped is not known.
class LayoutWatch
{
public:
    // `watchMountTable` false: the mount table is a file that is not watched.
    explicit LayoutWatch(bool watchMountTable);
    LayoutWatch(const LayoutWatch &) = delete;
    LayoutWatch &operator=(const LayoutWatch &) = delete;

    // True when something the layout is made of may have changed since the
    // last call (see above). Takes what has arrived off the monitors and
    // never waits for anything to arrive. One thread at a time.
    bool changed();

private:
    UdevMonitor m_kernel{UdevMonitor::Source::Kernel};
    UdevMonitor m_udev{UdevMonitor::Source::Udev};
    std::unique_ptr<MountMonitor> m_mounts;
    bool m_complete = false;
};

#endif // PLINTHD_LAYOUTWATCH_H
