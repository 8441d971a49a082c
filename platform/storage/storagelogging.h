// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_STORAGELOGGING_H
#define PLINTHD_STORAGELOGGING_H

#include <QLoggingCategory>

// The log of block devices, mounts and partitions,
// "plinthd.platform.partitions". Its name starts with "plinthd." so that
// PLINTHD_DEBUG turns its debug output on with the daemon's; a category of its
// own lets it be switched on alone (QT_LOGGING_RULES). Debug and info are off
// by default, as the daemon's are.
Q_DECLARE_LOGGING_CATEGORY(lcPartitions)

#endif // PLINTHD_STORAGELOGGING_H
