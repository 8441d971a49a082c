// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_THREADHANDOFF_H
#define PLINTHD_THREADHANDOFF_H

// Marks a hand-over of data from one thread to another through a mechanism
// that ThreadSanitizer cannot see: Debian's Qt is not instrumented, so the
// locking inside QThreadPool that orders a task's construction before its run
// is invisible to the tool. Release on the giving side right before the
// hand-over, acquire on the taking side first thing. Nothing in other builds.
#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#define PLINTHD_HANDOFF_RELEASE(address) __tsan_release(const_cast<void *>(static_cast<const void *>(address)))
#define PLINTHD_HANDOFF_ACQUIRE(address) __tsan_acquire(const_cast<void *>(static_cast<const void *>(address)))
#else
#define PLINTHD_HANDOFF_RELEASE(address) static_cast<void>(address)
#define PLINTHD_HANDOFF_ACQUIRE(address) static_cast<void>(address)
#endif

#endif // PLINTHD_THREADHANDOFF_H
