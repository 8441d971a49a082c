// SPDX-License-Identifier: BSD-3-Clause
#include "telephonylogging.h"

Q_LOGGING_CATEGORY(lcTelephony, "plinthd.platform.telephony", QtWarningMsg)
