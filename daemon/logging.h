// SPDX-License-Identifier: LicenseRef-plinthd
#ifndef PLINTHD_LOGGING_H
#define PLINTHD_LOGGING_H

#include <QLoggingCategory>

// The daemon's one logging category. Debug and info are off unless PLINTHD_DEBUG
// is set; warnings and critical messages are always shown.
Q_DECLARE_LOGGING_CATEGORY(lcPlinthd)

#endif // PLINTHD_LOGGING_H
