// SPDX-License-Identifier: LicenseRef-plinthd
#include "logging.h"

Q_LOGGING_CATEGORY(lcPlinthd, "plinthd", QtWarningMsg)
