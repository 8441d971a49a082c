// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_STORAGESSERVICE_H
#define PLINTHD_STORAGESSERVICE_H

#include "basicservice.h"
#include "dbustypes.h"
#include "storagesinfo.h"

#include <QDBusContext>

class DelayedReply;
class SharedComputation;

// "/org/norvu/plinth/Storages": internal memory, user partition, external drives,
// quotas and system categories.
//
// Every method needs a medium (sizing partitions, walking directories, asking
// the kernel for quotas, reading the package database), and some need the
// current user from the user manager. Called over D-Bus, each takes its reply
// over and returns at once: the main thread asks the user manager when the
// query needs the user, hands the answer to a worker, and sends the reply
// when the worker's result comes back. So the main thread stays free for the
// other objects however slow a medium or a peer is. Identical queries in
// flight share one computation (SharedComputation).
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
    // What a worker computes: the four queries of QueryType and the two
    // answered in other shapes.
    enum Computation {
        InternalStorageFigures = InternalStorage,
        UserPartitionFigures = InternalUserPartition,
        ExternalStorageFigures = ExternalStorage,
        SystemStorageFigures = SystemStorage,
        ExternalDrives,
        UsersQuota
    };

    void answerLater(Computation computation);
    void compute(Computation computation, const StoragesInfo::CurrentUser &user, const DelayedReply &reply);
    QVariant runComputation(Computation computation, const StoragesInfo::CurrentUser &user) const;
    static bool needsCurrentUser(Computation computation);
    static QVariant neutralAnswer(Computation computation);

    StoragesInfo *storagesInfo = nullptr;
    SharedComputation *computations = nullptr;
};

#endif // PLINTHD_STORAGESSERVICE_H
