// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_STORAGESINFO_H
#define PLINTHD_STORAGESINFO_H

#include "dbustypes.h"
#include "storagefigures.h"

#include <QMutex>
#include <QObject>
#include <QVariantMap>

#include <partition.h>

#include <functional>
#include <memory>

class ExternalDrives;
class FolderSizes;
class FolderWatches;
class PackageSizes;
class PartitionManager;
class QuotaSource;
class UserManagerClient;

// The storage provider behind StoragesService: the face the service owns. It
// owns the partition manager and hands the external-drive picture and its
// signals to ExternalDrives, a user's share of the user partition to
// UserStorageBreakdown and the quotas to UserQuotaReport. The queries run on
// workers (the service starts them) and never talk to a peer: what they need
// from the user manager, the current user, the main thread asks for first
// (askCurrentUser) and hands in. The folder walks and the package sums are
// kept between queries by FolderSizes and PackageSizes, which answer what a
// fresh walk and read would.
//
// Locking: `mutex` serialises the queries with each other, for their use of
// the partition manager (a refresh and the reading of its list). Only workers
// take it; the partition manager's notifications, handled on the main thread
// by ExternalDrives, never do.
class StoragesInfo : public QObject
{
    Q_OBJECT

public:
    explicit StoragesInfo(QObject *parent = nullptr);
    ~StoragesInfo() override;

    // Who the user manager said the current user is, when a query began.
    struct CurrentUser
    {
        bool known = false;
        uint uid = 0;
    };
    using CurrentUserAnswer = std::function<void(const CurrentUser &user)>;

    // Main thread only: asks the user manager (a round trip shared with the
    // other callers asking at the same time); `answer` runs in the event loop.
    void askCurrentUser(const CurrentUserAnswer &answer);

    // The queries. Any thread but the main one: they refresh the partitions
    // (statvfs of every mount), walk directories and ask the kernel.
    QVariantMap getExternalStorageInfo();
    QVariantMapList getExternalStorageDrivesInfo();

    // The internal memory as one figure, the user partition broken down for
    // the current user, the system categories and the users' quotas. The
    // directory walks run outside `mutex`; the system categories take no lock.
    // Without a known current user the figures that need one are left out,
    // with the warning of each place that needed it.
    QVariantMap getInternalStorageInfo();
    QVariantMap getInternalUserPartitionInfo(const CurrentUser &user);
    QVariantMap getSystemStorageInfo();
    QuotaInfoMap getUsersQuotaInfo(const CurrentUser &user);

signals:
    void externalStorageChanged(QVariantMap updatedStorage);
    void externalDriveChanged(QVariantMap externalDriveInfo);

private:
    // The two partition summaries there are; a closed set, so no other
    // selection of storage types can be asked for.
    enum class Summary {
        InternalMemory, // the system, user and mass partitions, measured by their file systems
        UserPartition   // the user and mass partitions, by the platform's own figures
    };

    // Sizes and file-system type of the partitions of `kind`, and its label.
    PartitionSummary summarise(Summary kind, const CurrentUser &user);
    static bool getCurrentUid(const CurrentUser &user, uint &uid);
    static QString currentUserName(const CurrentUser &user);

    PartitionManager *partitionManager = nullptr;
    ExternalDrives *externalDrives = nullptr;
    UserManagerClient *userManager = nullptr;
    QMutex mutex;
    std::unique_ptr<QuotaSource> quotaSource;
    // Declared in the order they are made: the sizes use the watches.
    std::unique_ptr<FolderWatches> folderWatches;
    std::unique_ptr<FolderSizes> folderSizes;
    std::unique_ptr<PackageSizes> packageSizes;
};

#endif // PLINTHD_STORAGESINFO_H
