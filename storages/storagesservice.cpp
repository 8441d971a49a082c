#include "storagesservice.h"

#include "storagesadaptor.h"

#include <QDebug>

static const QString ServiceName = QStringLiteral("org.norvu.plinth");
static const QString ObjectPath = QStringLiteral("/org/norvu/plinth/Storages");

// The storage provider is not part of this build yet; until it is, every query
// answers an empty map or list.
StoragesService::StoragesService(QObject *parent)
    : BasicService(ServiceName, ObjectPath, parent)
{
    setAdaptor(new StoragesAdaptor(this));
    if (!adaptor())
        qCritical() << "StoragesAdaptor is not created";
    PlinthTypes::registerVariantMapList();
    PlinthTypes::registerVariantMap();
}

StoragesService::~StoragesService() = default;

QVariantMap StoragesService::getInternalStorageInfo() { return QVariantMap(); }
QVariantMap StoragesService::getInternalUserPartitionInfo() { return QVariantMap(); }
QVariantMap StoragesService::getExternalStorageInfo() { return QVariantMap(); }
QVariantMapList StoragesService::getExternalStorageDrivesInfo() { return QVariantMapList(); }
QVariantMap StoragesService::getSystemStorageInfo() { return QVariantMap(); }
QuotaInfoMap StoragesService::getUsersQuotaInfo() { return QuotaInfoMap(); }
