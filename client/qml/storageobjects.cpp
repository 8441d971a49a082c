// SPDX-License-Identifier: BSD-3-Clause
#include "storageobjects.h"

#include <plinth/storages.h>

namespace PlinthQml {

InternalStorage::InternalStorage(QObject *parent)
    : StorageFigures(parent)
{
}

QString InternalStorage::filesystemType() const
{
    return Plinth::InternalStorage(values()).filesystemType();
}

QString InternalStorage::deviceLabel() const
{
    return Plinth::InternalStorage(values()).deviceLabel();
}

QDBusPendingCall InternalStorage::ask() const
{
    return storages()->getInternalStorageInfo();
}

UserPartition::UserPartition(QObject *parent)
    : StorageFigures(parent)
{
}

QString UserPartition::filesystemType() const
{
    return Plinth::UserPartition(values()).filesystemType();
}

QString UserPartition::deviceLabel() const
{
    return Plinth::UserPartition(values()).deviceLabel();
}

bool UserPartition::hasBreakdown() const
{
    return Plinth::UserPartition(values()).hasBreakdown();
}

quint64 UserPartition::bytesUsedPictures() const
{
    return Plinth::UserPartition(values()).bytesUsedIn(Plinth::UserPartition::Pictures);
}

quint64 UserPartition::bytesUsedVideos() const
{
    return Plinth::UserPartition(values()).bytesUsedIn(Plinth::UserPartition::Videos);
}

quint64 UserPartition::bytesUsedMusic() const
{
    return Plinth::UserPartition(values()).bytesUsedIn(Plinth::UserPartition::Music);
}

quint64 UserPartition::bytesUsedDocuments() const
{
    return Plinth::UserPartition(values()).bytesUsedIn(Plinth::UserPartition::Documents);
}

quint64 UserPartition::bytesUsedDownloads() const
{
    return Plinth::UserPartition(values()).bytesUsedIn(Plinth::UserPartition::Downloads);
}

quint64 UserPartition::bytesUsedOther() const
{
    return Plinth::UserPartition(values()).bytesUsedOther();
}

bool UserPartition::hasOtherUsers() const
{
    return Plinth::UserPartition(values()).hasOtherUsers();
}

quint64 UserPartition::bytesUsedOtherUsers() const
{
    return Plinth::UserPartition(values()).bytesUsedOtherUsers();
}

QDBusPendingCall UserPartition::ask() const
{
    return storages()->getInternalUserPartitionInfo();
}

SystemStorage::SystemStorage(QObject *parent)
    : StorageFigures(parent)
{
}

quint64 SystemStorage::bytesUsedApps() const
{
    return Plinth::SystemStorage(values()).bytesUsedBy(Plinth::SystemStorage::Apps);
}

quint64 SystemStorage::bytesUsedDebugInfo() const
{
    return Plinth::SystemStorage(values()).bytesUsedBy(Plinth::SystemStorage::DebugInfo);
}

quint64 SystemStorage::bytesUsedSDK() const
{
    return Plinth::SystemStorage(values()).bytesUsedBy(Plinth::SystemStorage::SDK);
}

quint64 SystemStorage::bytesUsedCoreDumps() const
{
    return Plinth::SystemStorage(values()).bytesUsedBy(Plinth::SystemStorage::CoreDumps);
}

quint64 SystemStorage::bytesUsedSystemLogs() const
{
    return Plinth::SystemStorage(values()).bytesUsedBy(Plinth::SystemStorage::SystemLogs);
}

quint64 SystemStorage::bytesUsedOther() const
{
    return Plinth::SystemStorage(values()).bytesUsedOther();
}

bool SystemStorage::categoriesExceedUsed() const
{
    return Plinth::SystemStorage(values()).categoriesExceedUsed();
}

QDBusPendingCall SystemStorage::ask() const
{
    return storages()->getSystemStorageInfo();
}

ExternalStorage::ExternalStorage(QObject *parent)
    : StorageFigures(parent)
{
}

QString ExternalStorage::deviceLabel() const
{
    return Plinth::ExternalStorageSummary(values()).deviceLabel();
}

bool ExternalStorage::isMounted() const
{
    return Plinth::ExternalStorageSummary(values()).isMounted();
}

uint ExternalStorage::countMountedPartitions() const
{
    return Plinth::ExternalStorageSummary(values()).countMountedPartitions();
}

void ExternalStorage::componentComplete()
{
    // Subscribed before the first question, so that nothing falls between.
    connect(storages(), &Plinth::Storages::externalStorageChanged, this, &ExternalStorage::summaryAnnounced);
    StorageFigures::componentComplete();
}

QDBusPendingCall ExternalStorage::ask() const
{
    return storages()->getExternalStorageInfo();
}

void ExternalStorage::summaryAnnounced(const Plinth::ExternalStorageSummary &summary)
{
    // An answer on its way was computed before this announcement.
    markStale();
    // After the last external partition the daemon announces an empty map,
    // where its answer is the summary of nothing: asked for.
    if (summary.isEmpty())
        refresh();
    else
        take(summary.values());
}

} // namespace PlinthQml
