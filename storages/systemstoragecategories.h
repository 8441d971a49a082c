// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SYSTEMSTORAGECATEGORIES_H
#define PLINTHD_SYSTEMSTORAGECATEGORIES_H

#include <QVariantMap>

class FolderSizes;
class PackageSizes;

// How the root file system's used space divides among the system categories:
// store applications and debug information (sizes the packages declare), the
// SDK, core dumps and system logs (what root owns in their folders) and the
// rest. The root file system is asked for its figures at every call; the
// folders and packages come from what FolderSizes and PackageSizes keep,
// which is what a fresh walk and read would give. Takes no lock of its own.
class SystemStorageCategories
{
public:
    SystemStorageCategories(FolderSizes &folders, PackageSizes &packages);

    QVariantMap measure() const;

private:
    FolderSizes &m_folders;
    PackageSizes &m_packages;
};

#endif // PLINTHD_SYSTEMSTORAGECATEGORIES_H
