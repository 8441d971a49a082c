// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/storagetypes.h>

#include "answerreader.h"

#include <limits>

namespace Plinth {

namespace {

const QString &bytesUsedKey()
{
    static const QString key = QStringLiteral("bytesUsed");
    return key;
}

// Category keys are "bytesUsed" followed by the category's word.
QString bytesUsedKey(const char *category)
{
    return bytesUsedKey() + QLatin1String(category);
}

} // namespace

quint64 StorageFigures::bytesTotal() const
{
    return unsignedSize(QStringLiteral("bytesTotal"));
}

quint64 StorageFigures::bytesUsed() const
{
    return unsignedSize(bytesUsedKey());
}

quint64 StorageFigures::bytesAvailable() const
{
    return unsignedSize(QStringLiteral("bytesAvailable"));
}

QString InternalStorage::filesystemType() const
{
    return text(QStringLiteral("filesystemType"));
}

QString InternalStorage::deviceLabel() const
{
    return text(QStringLiteral("deviceLabel"));
}

bool UserPartition::hasBreakdown() const
{
    return contains(bytesUsedKey("Pictures"));
}

quint64 UserPartition::bytesUsedIn(Folder folder) const
{
    static const char *const words[] = {"Pictures", "Videos", "Music", "Documents", "Downloads"};
    return unsignedSize(bytesUsedKey(words[folder]));
}

quint64 UserPartition::bytesUsedOther() const
{
    return unsignedSize(bytesUsedKey("Other"));
}

bool UserPartition::hasOtherUsers() const
{
    return contains(bytesUsedKey("OtherUsers"));
}

quint64 UserPartition::bytesUsedOtherUsers() const
{
    return unsignedSize(bytesUsedKey("OtherUsers"));
}

quint64 SystemStorage::bytesUsedBy(Category category) const
{
    static const char *const words[] = {"Apps", "DebugInfo", "SDK", "CoreDumps", "SystemLogs"};
    return unsignedSize(bytesUsedKey(words[category]));
}

bool SystemStorage::categoriesExceedUsed() const
{
    return unsignedSize(bytesUsedKey("Other")) > quint64(std::numeric_limits<qint64>::max());
}

quint64 SystemStorage::bytesUsedOther() const
{
    return categoriesExceedUsed() ? 0 : unsignedSize(bytesUsedKey("Other"));
}

QString ExternalStorageSummary::deviceLabel() const
{
    return text(QStringLiteral("deviceLabel"));
}

bool ExternalStorageSummary::isMounted() const
{
    return flag(QStringLiteral("mounted"));
}

uint ExternalStorageSummary::countMountedPartitions() const
{
    return count(QStringLiteral("countMountedPartitions"));
}

QString ExternalPartition::name() const
{
    return text(QStringLiteral("partitionName"));
}

QString ExternalPartition::mountPoint() const
{
    return text(QStringLiteral("mountPoint"));
}

bool ExternalPartition::isMounted() const
{
    return !mountPoint().isEmpty();
}

QString ExternalPartition::partitionLabel() const
{
    return text(QStringLiteral("partitionLabel"));
}

QString ExternalPartition::driveName() const
{
    return text(QStringLiteral("driveName"));
}

qint64 ExternalPartition::bytesTotal() const
{
    return signedSize(QStringLiteral("bytesTotal"));
}

qint64 ExternalPartition::bytesUsed() const
{
    return signedSize(bytesUsedKey());
}

qint64 ExternalPartition::bytesAvailable() const
{
    return signedSize(QStringLiteral("bytesAvailable"));
}

QString ExternalDrive::name() const
{
    return text(QStringLiteral("driveName"));
}

QString ExternalDrive::connectionName() const
{
    return text(QStringLiteral("driveType"));
}

ExternalDrive::Connection ExternalDrive::connection() const
{
    const QString name = connectionName();
    if (name == QLatin1String("SD"))
        return SD;
    if (name == QLatin1String("USB"))
        return USB;
    if (name == QLatin1String("IEEE1394"))
        return IEEE1394;
    return Unknown;
}

QList<ExternalPartition> ExternalDrive::partitions() const
{
    QList<ExternalPartition> result;
    const QVariantList entries = values().value(QStringLiteral("partitionsInfo")).toList();
    for (const QVariant &entry : entries)
        result.append(ExternalPartition(entry.toMap()));
    return result;
}

bool UserQuota::isSet() const
{
    return flag(QStringLiteral("quotaIsSet"));
}

quint64 UserQuota::limit() const
{
    return unsignedSize(QStringLiteral("quotaLimit"));
}

quint64 UserQuota::available() const
{
    return unsignedSize(QStringLiteral("quotaAvailable"));
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
