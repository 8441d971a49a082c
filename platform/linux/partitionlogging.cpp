// SPDX-License-Identifier: LicenseRef-plinthd
#include "partitionlogging.h"

Q_LOGGING_CATEGORY(lcPartitions, "plinthd.platform.partitions", QtWarningMsg)
