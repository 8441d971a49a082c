// SPDX-License-Identifier: BSD-3-Clause
#include "partition.h"
#include "partition_p.h"

namespace {

// A null partition shares one empty data block instead of checking for null
// in every getter.
const PartitionData &emptyData()
{
    static const PartitionData empty;
    return empty;
}

} // namespace

Partition::Partition() = default;
Partition::Partition(const Partition &other) = default;
Partition &Partition::operator=(const Partition &other) = default;
Partition::~Partition() = default;

Partition::Partition(PartitionData *data)
    : d(data)
{
}

#define PARTITION_FIELD(name) (d ? d->name : emptyData().name)

Partition::Status Partition::status() const { return PARTITION_FIELD(status); }
qint64 Partition::bytesTotal() const { return PARTITION_FIELD(bytesTotal); }
qint64 Partition::bytesFree() const { return PARTITION_FIELD(bytesFree); }
qint64 Partition::bytesAvailable() const { return PARTITION_FIELD(bytesAvailable); }
qint64 Partition::bytesTotalLimit() const { return PARTITION_FIELD(bytesTotalLimit); }
QString Partition::deviceName() const { return PARTITION_FIELD(deviceName); }
QString Partition::deviceLabel() const { return PARTITION_FIELD(deviceLabel); }
QString Partition::partitionLabel() const { return PARTITION_FIELD(partitionLabel); }
QString Partition::mountPath() const { return PARTITION_FIELD(mountPath); }
QString Partition::filesystemType() const { return PARTITION_FIELD(filesystemType); }
Partition::StorageTypes Partition::storageType() const { return PARTITION_FIELD(storageType); }
QVariantMap Partition::drive() const { return PARTITION_FIELD(drive); }

#undef PARTITION_FIELD
