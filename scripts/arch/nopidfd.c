// SPDX-License-Identifier: BSD-3-Clause
// Preloaded into every program of an emulated root (scripts/test-arch):
// qemu-user (Debian 12 ships 7.2) passes waitid(P_PIDFD) through to the host
// kernel, so Qt's process launcher believes pidfds work, but refuses
// clone(CLONE_PIDFD) with EINVAL. QProcess then takes the failed start for a
// running child of pid -1 and, when destroyed, kills it: kill(-1, SIGKILL)
// ends every process in sight. Here both calls report what an older kernel
// reports, and Qt starts processes the classic way, as it would on a kernel
// without pidfds.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <sched.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#ifndef CLONE_PIDFD
#define CLONE_PIDFD 0x00001000
#endif
#ifndef P_PIDFD
#define P_PIDFD 3
#endif

long syscall(long number, ...)
{
    static long (*next)(long, ...);
    va_list list;
    long a[6];
    va_start(list, number);
    for (int i = 0; i < 6; ++i)
        a[i] = va_arg(list, long);
    va_end(list);

    if ((number == SYS_clone && (a[0] & CLONE_PIDFD)) || (number == SYS_waitid && a[0] == P_PIDFD)) {
        errno = EINVAL;
        return -1;
    }
    if (!next)
        next = (long (*)(long, ...))dlsym(RTLD_NEXT, "syscall");
    return next(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
