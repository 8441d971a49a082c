// SPDX-License-Identifier: BSD-3-Clause
#include "settingslogging.h"

Q_LOGGING_CATEGORY(lcSettings, "plinthd.platform.settings", QtWarningMsg)
