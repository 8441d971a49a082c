#ifndef PLINTHD_STORAGESSERVICE_H
#define PLINTHD_STORAGESSERVICE_H

#include "basicservice.h"
#include "dbustypes.h"

#include <QDBusContext>

// "/org/norvu/plinth/Storages": internal memory, user partition, external drives,
// quotas and system categories.
class StoragesService : public BasicService, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.Storages")

public:
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
};

#endif // PLINTHD_STORAGESSERVICE_H
