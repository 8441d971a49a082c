// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TELEPHONYLOGGING_H
#define PLINTHD_TELEPHONYLOGGING_H

#include <QLoggingCategory>

// The log of the modem manager and the modems on the telephony stack,
// "plinthd.platform.telephony". Its name starts with "plinthd." so that
// PLINTHD_DEBUG turns its debug output on with the daemon's; a category of its
// own lets it be switched on alone (QT_LOGGING_RULES). Debug and info are off
// by default, as the daemon's are.
Q_DECLARE_LOGGING_CATEGORY(lcTelephony)

#endif // PLINTHD_TELEPHONYLOGGING_H
