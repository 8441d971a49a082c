// SPDX-License-Identifier: LicenseRef-plinthd
#ifndef PLINTHD_PARTITIONLOGGING_H
#define PLINTHD_PARTITIONLOGGING_H

#include <QLoggingCategory>

// The partition classes log under a category of their own; its name starts with
// "plinthd" so that PLINTHD_DEBUG turns its debug output on too.
Q_DECLARE_LOGGING_CATEGORY(lcPartitions)

#endif // PLINTHD_PARTITIONLOGGING_H
