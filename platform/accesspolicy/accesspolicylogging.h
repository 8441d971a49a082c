// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_ACCESSPOLICYLOGGING_H
#define PLINTHD_ACCESSPOLICYLOGGING_H

#include <QLoggingCategory>

// The log of the client of the policy manager,
// "plinthd.platform.accesspolicy". Its name starts with "plinthd." so that
// PLINTHD_DEBUG turns its debug output on with the daemon's; a category of its
// own lets it be switched on alone (QT_LOGGING_RULES). Debug and info are off
// by default, as the daemon's are.
Q_DECLARE_LOGGING_CATEGORY(lcAccessPolicy)

#endif // PLINTHD_ACCESSPOLICYLOGGING_H
