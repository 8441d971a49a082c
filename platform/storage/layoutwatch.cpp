// SPDX-License-Identifier: BSD-3-Clause
#include "layoutwatch.h"

#include "storagelogging.h"

#include <poll.h>
#include <sys/socket.h>

namespace {

// The watch only needs to know that something came, not what: a queue that
// overflows costs one reading of the layout, not a missed change. So its
// sockets keep a modest buffer rather than the 128 MiB libudev asks for when
// it may (as root without a sandbox): the kernel's socket hears every
// subsystem (a battery's events, say), and what it holds between two queries
// is kernel memory pinned for nothing.
constexpr int ReceiveBufferBytes = 256 * 1024;

void limitReceiveBuffer(int descriptor)
{
    if (descriptor >= 0)
        ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &ReceiveBufferBytes, sizeof ReceiveBufferBytes);
}

} // namespace

LayoutWatch::LayoutWatch(bool watchMountTable)
{
    if (watchMountTable)
        m_mounts = std::make_unique<MountMonitor>();
    limitReceiveBuffer(m_kernel.descriptor());
    limitReceiveBuffer(m_udev.descriptor());
    m_complete = m_kernel.descriptor() >= 0 && m_udev.descriptor() >= 0 && m_mounts
            && m_mounts->descriptor() >= 0;
    // A fixture table is the tests' choice and needs no warning.
    if (!m_complete && watchMountTable)
        qCWarning(lcPartitions) << "Can't watch block devices and mounts for changes; every storage query reads "
                                   "the partitions afresh";
}

bool LayoutWatch::changed()
{
    if (!m_complete)
        return true;
    pollfd sources[] = {
        {m_kernel.descriptor(), POLLIN, 0},
        {m_udev.descriptor(), POLLIN, 0},
        {m_mounts->descriptor(), POLLIN, 0},
    };
    const int ready = ::poll(sources, sizeof sources / sizeof sources[0], 0);
    if (ready == 0)
        return false;
    if (ready < 0)
        return true;
    for (const pollfd &source : sources) {
        if (source.revents & POLLNVAL)
            return true;
    }
    // An overflowed netlink socket polls as an error; its drain reports it.
    bool changed = false;
    if (sources[0].revents)
        changed = m_kernel.drain() || changed;
    if (sources[1].revents)
        changed = m_udev.drain() || changed;
    // The mount table says only that it changed; taking that off re-arms it.
    if (sources[2].revents) {
        m_mounts->drain();
        changed = true;
    }
    return changed;
}
