// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PLATFORMLOGGING_H
#define PLINTHD_PLATFORMLOGGING_H

#include <QLoggingCategory>

// The platform classes log under categories of their own, one a subject, so
// that each can be switched on alone (QT_LOGGING_RULES). Every name starts
// with "plinthd." so that PLINTHD_DEBUG turns their debug output on with the
// daemon's; debug and info are off by default, as the daemon's are.
Q_DECLARE_LOGGING_CATEGORY(lcPartitions)
Q_DECLARE_LOGGING_CATEGORY(lcTelephony)
Q_DECLARE_LOGGING_CATEGORY(lcSettings)
Q_DECLARE_LOGGING_CATEGORY(lcAccessPolicy)

#endif // PLINTHD_PLATFORMLOGGING_H
