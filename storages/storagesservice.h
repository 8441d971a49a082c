// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_STORAGESSERVICE_H
#define PLINTHD_STORAGESSERVICE_H

#include "basicservice.h"
#include "dbustypes.h"

#include <QDBusContext>

class StoragesInfo;

// "/org/norvu/plinth/Storages": internal memory, user partition, external drives,
// quotas and system categories.
//
// Four methods are queries that may take long (sizing partitions, walking
// directories, reading the package database). Called over D-Bus they take the
// reply over, run on the global thread pool and answer from there, so the main
// thread stays free for the other objects. Every call gets its own task and
// its own reply: nothing is merged, queued or refused.
class StoragesService : public BasicService, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.Storages")

public:
    enum QueryType {
        InternalStorage = 0,
        InternalUserPartition = 1,
        ExternalStorage = 2,
        SystemStorage = 3
    };
    Q_ENUM(QueryType)

    explicit StoragesService(QObject *parent);
    ~StoragesService() override;

signals:
    void externalStorageChanged(QVariantMap updatedStorage);
    void externalDriveChanged(QVariantMap externalStorageDrivesInfo);

public slots:
    QVariantMap getInternalStorageInfo();
    QVariantMap getInternalUserPartitionInfo();
    QVariantMap getExternalStorageInfo();
    QVariantMapList getExternalStorageDrivesInfo();
    QVariantMap getSystemStorageInfo();
    QuotaInfoMap getUsersQuotaInfo();

private:
    class QueryTask;

    QVariantMap tryStartQuery(QueryType type);
    QVariantMap runQuery(QueryType type) const;

    StoragesInfo *storagesInfo = nullptr;
};

#endif // PLINTHD_STORAGESSERVICE_H
