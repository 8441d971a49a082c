// SPDX-License-Identifier: BSD-3-Clause
#include "accesspolicylogging.h"

Q_LOGGING_CATEGORY(lcAccessPolicy, "plinthd.platform.accesspolicy", QtWarningMsg)
