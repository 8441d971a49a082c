// SPDX-License-Identifier: LicenseRef-plinthd
#include "sourcelock.h"

QMutex &partitionSourceLock()
{
    static QMutex lock;
    return lock;
}
