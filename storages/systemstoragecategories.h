// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SYSTEMSTORAGECATEGORIES_H
#define PLINTHD_SYSTEMSTORAGECATEGORIES_H

#include <QVariantMap>

// How the root file system's used space divides among the system categories:
// store applications and debug information (sizes the packages declare), the
// SDK, core dumps and system logs (what root owns in their folders) and the
// rest. Measured afresh on every call; takes no lock.
class SystemStorageCategories
{
public:
    static QVariantMap measure();
};

#endif // PLINTHD_SYSTEMSTORAGECATEGORIES_H
