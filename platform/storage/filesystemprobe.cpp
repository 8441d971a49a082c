// SPDX-License-Identifier: BSD-3-Clause
#include "filesystemprobe.h"

#include <sys/statvfs.h>

#ifdef PLINTHD_TEST_SEAMS
#include "storagelogging.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace {

struct Stall
{
    QByteArray mountPath;
    QByteArray gate;
};

// Read once: the environment is not to be read while other threads may change
// it. Never destroyed: a scan that waits at the gate is not joined when the
// process exits, and must not find these freed under it.
const Stall &configuredStall()
{
    static const Stall *const stall = new Stall{qgetenv("PLINTHD_TEST_STALL_MOUNT"),
                                                qgetenv("PLINTHD_TEST_STALL_GATE")};
    return *stall;
}

// Opening a FIFO for reading waits for a writer; reading it ends when the
// last writer has closed it. A signal may interrupt either. Both are made as
// system calls of their own: a preloaded library that wraps open() and read()
// (the tests' recorded devices come through one) may hold a lock of its own
// across them, and the wait would then hold every other open() of the process.
void waitAtGate(const QByteArray &gate)
{
    int fd = -1;
    do {
        fd = int(::syscall(SYS_openat, AT_FDCWD, gate.constData(), O_RDONLY | O_CLOEXEC));
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        qCWarning(lcPartitions) << "Can't open the stall gate" << gate;
        return;
    }
    char discarded[64];
    for (;;) {
        const qint64 got = ::syscall(SYS_read, fd, discarded, sizeof discarded);
        if (got == 0 || (got < 0 && errno != EINTR))
            break;
    }
    ::close(fd);
}

} // namespace
#endif

bool FileSystemProbe::measure(const QByteArray &path, struct statvfs *out)
{
#ifdef PLINTHD_TEST_SEAMS
    const Stall &stall = configuredStall();
    if (!stall.mountPath.isEmpty() && path == stall.mountPath)
        waitAtGate(stall.gate);
#endif
    return ::statvfs(path.constData(), out) == 0;
}
