// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/storagetypes.h>

#include "answerreader.h"

#include <plinth/mapkeys.h>

#include <limits>

namespace Plinth {

namespace {

QString key(const char *name)
{
    return QLatin1String(name);
}

} // namespace

quint64 StorageFigures::bytesTotal() const
{
    return unsignedSize(key(Keys::BytesTotal));
}

quint64 StorageFigures::bytesUsed() const
{
    return unsignedSize(key(Keys::BytesUsed));
}

quint64 StorageFigures::bytesAvailable() const
{
    return unsignedSize(key(Keys::BytesAvailable));
}

QString InternalStorage::filesystemType() const
{
    return text(key(Keys::FilesystemType));
}

QString InternalStorage::deviceLabel() const
{
    return text(key(Keys::DeviceLabel));
}

bool UserPartition::hasBreakdown() const
{
    return contains(key(Keys::BytesUsedPictures));
}

quint64 UserPartition::bytesUsedIn(Folder folder) const
{
    static const char *const keys[] = {Keys::BytesUsedPictures, Keys::BytesUsedVideos, Keys::BytesUsedMusic,
                                       Keys::BytesUsedDocuments, Keys::BytesUsedDownloads};
    return unsignedSize(key(keys[folder]));
}

quint64 UserPartition::bytesUsedOther() const
{
    return unsignedSize(key(Keys::BytesUsedOther));
}

bool UserPartition::hasOtherUsers() const
{
    return contains(key(Keys::BytesUsedOtherUsers));
}

quint64 UserPartition::bytesUsedOtherUsers() const
{
    return unsignedSize(key(Keys::BytesUsedOtherUsers));
}

quint64 SystemStorage::bytesUsedBy(Category category) const
{
    static const char *const keys[] = {Keys::BytesUsedApps, Keys::BytesUsedDebugInfo, Keys::BytesUsedSDK,
                                       Keys::BytesUsedCoreDumps, Keys::BytesUsedSystemLogs};
    return unsignedSize(key(keys[category]));
}

bool SystemStorage::categoriesExceedUsed() const
{
    return unsignedSize(key(Keys::BytesUsedOther)) > quint64(std::numeric_limits<qint64>::max());
}

quint64 SystemStorage::bytesUsedOther() const
{
    return categoriesExceedUsed() ? 0 : unsignedSize(key(Keys::BytesUsedOther));
}

QString ExternalStorageSummary::deviceLabel() const
{
    return text(key(Keys::DeviceLabel));
}

bool ExternalStorageSummary::isMounted() const
{
    return flag(key(Keys::Mounted));
}

uint ExternalStorageSummary::countMountedPartitions() const
{
    return count(key(Keys::CountMountedPartitions));
}

QString ExternalPartition::name() const
{
    return text(key(Keys::PartitionName));
}

QString ExternalPartition::mountPoint() const
{
    return text(key(Keys::MountPoint));
}

bool ExternalPartition::isMounted() const
{
    return !mountPoint().isEmpty();
}

QString ExternalPartition::partitionLabel() const
{
    return text(key(Keys::PartitionLabel));
}

QString ExternalPartition::driveName() const
{
    return text(key(Keys::DriveName));
}

qint64 ExternalPartition::bytesTotal() const
{
    return signedSize(key(Keys::BytesTotal));
}

qint64 ExternalPartition::bytesUsed() const
{
    return signedSize(key(Keys::BytesUsed));
}

qint64 ExternalPartition::bytesAvailable() const
{
    return signedSize(key(Keys::BytesAvailable));
}

QString ExternalDrive::name() const
{
    return text(key(Keys::DriveName));
}

QString ExternalDrive::connectionName() const
{
    return text(key(Keys::DriveType));
}

ExternalDrive::Connection ExternalDrive::connection() const
{
    const QString name = connectionName();
    if (name == QLatin1String(DriveTypes::SD))
        return SD;
    if (name == QLatin1String(DriveTypes::USB))
        return USB;
    if (name == QLatin1String(DriveTypes::IEEE1394))
        return IEEE1394;
    return Unknown;
}

QList<ExternalPartition> ExternalDrive::partitions() const
{
    QList<ExternalPartition> result;
    const QVariantList entries = values().value(key(Keys::PartitionsInfo)).toList();
    for (const QVariant &entry : entries)
        result.append(ExternalPartition(entry.toMap()));
    return result;
}

bool UserQuota::isSet() const
{
    return flag(key(Keys::QuotaIsSet));
}

quint64 UserQuota::limit() const
{
    return unsignedSize(key(Keys::QuotaLimit));
}

quint64 UserQuota::available() const
{
    return unsignedSize(key(Keys::QuotaAvailable));
}

const QDBusArgument &operator>>(const QDBusArgument &argument, InternalStorage &answer)
{
    return readAnswer(argument, answer);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, UserPartition &answer)
{
    return readAnswer(argument, answer);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, SystemStorage &answer)
{
    return readAnswer(argument, answer);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, ExternalStorageSummary &answer)
{
    return readAnswer(argument, answer);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, ExternalDrive &answer)
{
    return readAnswer(argument, answer);
}

const QDBusArgument &operator>>(const QDBusArgument &argument, UserQuota &answer)
{
    return readAnswer(argument, answer);
}

} // namespace Plinth
