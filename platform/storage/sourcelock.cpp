// SPDX-License-Identifier: BSD-3-Clause
#include "sourcelock.h"

// Never destroyed: the partition manager's scan thread is not joined when the
// process exits, and one that finishes then must still find the lock.
QMutex &partitionSourceLock()
{
    static QMutex *const lock = new QMutex;
    return *lock;
}
