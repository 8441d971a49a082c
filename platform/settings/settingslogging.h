// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SETTINGSLOGGING_H
#define PLINTHD_SETTINGSLOGGING_H

#include <QLoggingCategory>

// The log of configuration items and the GLib context their change notices
// arrive on, "plinthd.platform.settings". Its name starts with "plinthd." so
// that PLINTHD_DEBUG turns its debug output on with the daemon's; a category
// of its own lets it be switched on alone (QT_LOGGING_RULES). Debug and info
// are off by default, as the daemon's are.
Q_DECLARE_LOGGING_CATEGORY(lcSettings)

#endif // PLINTHD_SETTINGSLOGGING_H
