// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SOURCELOCK_H
#define PLINTHD_SOURCELOCK_H

#include <QMutex>

// libudev and libmount keep process-wide state of their own (hash seeds, debug
// masks) that they set up lazily without locking, and neither promises to be
// safe from several threads at once. Scans run on the main thread and on
// query threads, so every call into either library is made under this lock.
// It is held only for the span of a library call sequence (a block device
// enumeration, a table parse, draining a monitor), never across anything slow.
QMutex &partitionSourceLock();

#endif // PLINTHD_SOURCELOCK_H
