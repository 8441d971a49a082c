// SPDX-License-Identifier: BSD-3-Clause
#include "platformlogging.h"

// block devices, mounts and partitions
Q_LOGGING_CATEGORY(lcPartitions, "plinthd.platform.partitions", QtWarningMsg)
// the modem manager and the modems on the telephony stack
Q_LOGGING_CATEGORY(lcTelephony, "plinthd.platform.telephony", QtWarningMsg)
// configuration items and the GLib context their change notices arrive on
Q_LOGGING_CATEGORY(lcSettings, "plinthd.platform.settings", QtWarningMsg)
// the client of the policy manager
Q_LOGGING_CATEGORY(lcAccessPolicy, "plinthd.platform.accesspolicy", QtWarningMsg)
