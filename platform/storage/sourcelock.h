// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SOURCELOCK_H
#define PLINTHD_SOURCELOCK_H

#include <QMutex>

// libudev and libmount keep process-wide state of their own (hash seeds, debug
// masks) that they set up lazily without locking, and neither promises to be
// safe from several threads at once. Scans run on the partition manager's
// scan thread and on query threads, and the monitors are made on the main
// thread, so every call into either library is made under this lock.
// It is held only for the span of a library call sequence (a block device
// enumeration, a table parse, draining a monitor), never across statvfs() or
// anything else that waits on a medium. Of the partition manager's own work,
// only its construction and its deletion while no scan runs take it on the
// main thread.
QMutex &partitionSourceLock();

#endif // PLINTHD_SOURCELOCK_H
