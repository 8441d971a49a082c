// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_STORAGEMAPS_H
#define PLINTHD_STORAGEMAPS_H

#include "storagefigures.h"

#include <QVariantMap>

// The bus edge of the storage figures: the one place that turns them into the
// maps clients receive, with the keys of mapkeys.h and the D-Bus types ("t" for sizes, the
// one signed "x" where clients expect it) they have always had.
namespace StorageMaps {
QVariantMap partitionSummary(const PartitionSummary &summary);
// Adds the user's folders and other files to a partition summary's map, and
// replaces its sizes with the user's own.
void addUserBreakdown(QVariantMap &map, const UserBreakdown &breakdown);
QVariantMap userQuota(const UserQuota &quota);
} // namespace StorageMaps

#endif // PLINTHD_STORAGEMAPS_H
