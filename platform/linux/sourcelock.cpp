// SPDX-License-Identifier: BSD-3-Clause
#include "sourcelock.h"

QMutex &partitionSourceLock()
{
    static QMutex lock;
    return lock;
}
