// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_LOGGING_H
#define PLINTHD_LOGGING_H

#include <QLoggingCategory>

// The daemon's own logging category. Debug and info are off unless PLINTHD_DEBUG
// is set; warnings and critical messages are always shown. Every other category
// of the daemon (the platform classes have theirs) is named "plinthd.<subject>"
// so that the same switch reaches it.
Q_DECLARE_LOGGING_CATEGORY(lcPlinthd)

namespace Logging {

// The prefix of every category name the debug switch turns on.
extern const char CategoryPrefix[];

// Installs the category filter behind PLINTHD_DEBUG. Qt's own rules
// (QT_LOGGING_RULES, qtlogging.ini) are applied first; with DEBUGENABLED the
// filter then turns debug and info on for every category whose name starts
// with CategoryPrefix, those made later included. It never silences anything
// those rules enabled.
void installDebugSwitch(bool debugEnabled);

} // namespace Logging

#endif // PLINTHD_LOGGING_H
