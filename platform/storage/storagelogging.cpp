// SPDX-License-Identifier: BSD-3-Clause
#include "storagelogging.h"

Q_LOGGING_CATEGORY(lcPartitions, "plinthd.platform.partitions", QtWarningMsg)
