// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_STORAGETYPES_H
#define PLINTH_STORAGETYPES_H

#include <plinth/answer.h>

#include <QList>
#include <QMap>
#include <QMetaType>

class QDBusArgument;

namespace Plinth {

// Sizes in bytes of a storage: its total, what is used and what an
// application may still write. Used plus available can be less than the
// total: blocks reserved for root count as neither.
class PLINTH_QT5_EXPORT StorageFigures : public Answer
{
public:
    using Answer::Answer;

    quint64 bytesTotal() const;
    quint64 bytesUsed() const;
    quint64 bytesAvailable() const;
};

// The internal memory as one figure (getInternalStorageInfo). With no
// internal partition listed the sizes are 0 and the texts empty.
class PLINTH_QT5_EXPORT InternalStorage : public StorageFigures
{
public:
    using StorageFigures::StorageFigures;

    // "ext4", ...; empty when the device lists no internal partition.
    QString filesystemType() const;
    QString deviceLabel() const;
};

// The user partition as the current user sees it
// (getInternalUserPartitionInfo): the device owner sees the whole partition,
// any other user only their own files.
class PLINTH_QT5_EXPORT UserPartition : public InternalStorage
{
public:
    using InternalStorage::InternalStorage;

    enum Folder { Pictures, Videos, Music, Documents, Downloads };

    // False when the daemon could not tell who the current user is: then
    // only the partition's own figures are there.
    bool hasBreakdown() const;
    quint64 bytesUsedIn(Folder folder) const;
    // The user's files outside the five folders.
    quint64 bytesUsedOther() const;
    // Whether the answer says what other users take: always on a device with
    // one user (0 then), and for the owner of a device with several.
    bool hasOtherUsers() const;
    quint64 bytesUsedOtherUsers() const;
};

// The root file system and what the system keeps there
// (getSystemStorageInfo).
class PLINTH_QT5_EXPORT SystemStorage : public StorageFigures
{
public:
    using StorageFigures::StorageFigures;

    enum Category { Apps, DebugInfo, SDK, CoreDumps, SystemLogs };

    quint64 bytesUsedBy(Category category) const;
    // The used space minus the five categories; 0 when they add up to more.
    quint64 bytesUsedOther() const;
    // Package sizes are declared, not measured, so the categories can add up
    // to more than the used space; the daemon then sends the difference
    // wrapped around as an unsigned number.
    bool categoriesExceedUsed() const;
};

// Deprecated by ExternalDrive: all external partitions summed into one
// figure (getExternalStorageInfo, externalStorageChanged). Only mounted
// partitions count.
class PLINTH_QT5_EXPORT ExternalStorageSummary : public StorageFigures
{
public:
    using StorageFigures::StorageFigures;

    QString deviceLabel() const;
    bool isMounted() const;
    uint countMountedPartitions() const;
};

// One partition of an external drive. Its sizes are signed 64-bit numbers.
class PLINTH_QT5_EXPORT ExternalPartition : public Answer
{
public:
    using Answer::Answer;

    // The label of its file system; empty when it has none.
    QString name() const;
    // Empty when the partition is not mounted.
    QString mountPoint() const;
    bool isMounted() const;
    // Its name in the partition table.
    QString partitionLabel() const;
    QString driveName() const;
    qint64 bytesTotal() const;
    // An unmounted partition counts as full.
    qint64 bytesUsed() const;
    // 0 when not mounted.
    qint64 bytesAvailable() const;
};

// An SD card or USB stick with all its partitions (getExternalStorageDrivesInfo,
// externalDriveChanged). The signal announces a removal with an empty one.
class PLINTH_QT5_EXPORT ExternalDrive : public Answer
{
public:
    using Answer::Answer;

    enum Connection { SD, USB, IEEE1394, Unknown };

    // Vendor and model.
    QString name() const;
    Connection connection() const;
    // "SD", "USB", "IEEE1394" or "Unknown", as sent.
    QString connectionName() const;
    QList<ExternalPartition> partitions() const;
};

using ExternalDriveList = QList<ExternalDrive>;

// One user's disk quota on the user partition (getUsersQuotaInfo).
class PLINTH_QT5_EXPORT UserQuota : public Answer
{
public:
    using Answer::Answer;

    bool isSet() const;
    // With a quota: the quota; without: the user's total of the partition.
    quint64 limit() const;
    // What is left of it (0 when it is used up); without a quota the space
    // left on the partition.
    quint64 available() const;
};

// By the user's uid written in decimal ("100000").
using UserQuotaMap = QMap<QString, UserQuota>;

PLINTH_QT5_EXPORT const QDBusArgument &operator>>(const QDBusArgument &argument, InternalStorage &answer);
PLINTH_QT5_EXPORT const QDBusArgument &operator>>(const QDBusArgument &argument, UserPartition &answer);
PLINTH_QT5_EXPORT const QDBusArgument &operator>>(const QDBusArgument &argument, SystemStorage &answer);
PLINTH_QT5_EXPORT const QDBusArgument &operator>>(const QDBusArgument &argument, ExternalStorageSummary &answer);
PLINTH_QT5_EXPORT const QDBusArgument &operator>>(const QDBusArgument &argument, ExternalDrive &answer);
PLINTH_QT5_EXPORT const QDBusArgument &operator>>(const QDBusArgument &argument, UserQuota &answer);

} // namespace Plinth

Q_DECLARE_METATYPE(Plinth::InternalStorage)
Q_DECLARE_METATYPE(Plinth::UserPartition)
Q_DECLARE_METATYPE(Plinth::SystemStorage)
Q_DECLARE_METATYPE(Plinth::ExternalStorageSummary)
Q_DECLARE_METATYPE(Plinth::ExternalDrive)
Q_DECLARE_METATYPE(Plinth::ExternalDriveList)
Q_DECLARE_METATYPE(Plinth::UserQuota)
Q_DECLARE_METATYPE(Plinth::UserQuotaMap)

#endif // PLINTH_STORAGETYPES_H
