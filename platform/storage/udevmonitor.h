// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_UDEVMONITOR_H
#define PLINTHD_UDEVMONITOR_H

struct udev;
struct udev_monitor;

// Tells when a block device changed: its netlink socket turns readable, no
// timer, no polling. The owner watches descriptor() and calls drain() once it
// is readable; the socket stays readable until it has been drained. drain()
// may run on any thread, one thread at a time, so that the thread that
// watches need not be the one that takes libudev's lock.
class UdevMonitor
{
public:
    // Whose announcements are heard. udev announces a device once it has
    // finished with it (its database written: labels, file system type); the
    // kernel announces it first, as soon as the device is there or gone, and
    // keeps announcing when no udev runs at all.
    enum class Source {
        Udev,
        Kernel
    };

    explicit UdevMonitor(Source source = Source::Udev);
    ~UdevMonitor();
    UdevMonitor(const UdevMonitor &) = delete;
    UdevMonitor &operator=(const UdevMonitor &) = delete;

    // The socket to watch for reading; -1 when block devices cannot be
    // watched (the owner says what that costs).
    int descriptor() const;
    // Takes every queued event off the socket; true when a block device's
    // event came, or when events may have been lost (see the source).
    bool drain();

private:
    udev *m_context = nullptr;
    udev_monitor *m_monitor = nullptr;
    int m_descriptor = -1;
};

#endif // PLINTHD_UDEVMONITOR_H
