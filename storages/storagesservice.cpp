#include "storagesservice.h"

#include "storagesadaptor.h"
#include "storagesinfo.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDebug>
#include <QThreadPool>
#include <QtConcurrent>

static const QString ServiceName = QStringLiteral("org.norvu.plinth");
static const QString ObjectPath = QStringLiteral("/org/norvu/plinth/Storages");

StoragesService::StoragesService(QObject *parent)
    : BasicService(ServiceName, ObjectPath, parent)
{
    storagesInfo = new StoragesInfo(this);
    setAdaptor(new StoragesAdaptor(this));
    if (!adaptor())
        qCritical() << "StoragesAdaptor is not created";
    PlinthTypes::registerVariantMapList();
    PlinthTypes::registerVariantMap();
    connect(storagesInfo, &StoragesInfo::externalStorageChanged, this, &StoragesService::externalStorageChanged);
    connect(storagesInfo, &StoragesInfo::externalDriveChanged, this, &StoragesService::externalDriveChanged);
}

// The provider goes first, while the object is still registered: queries still
// running are awaited by the daemon before it deletes the services.
StoragesService::~StoragesService()
{
    delete storagesInfo;
    storagesInfo = nullptr;
}

QVariantMap StoragesService::getInternalStorageInfo()
{
    return tryStartQuery(InternalStorage);
}

QVariantMap StoragesService::getInternalUserPartitionInfo()
{
    return tryStartQuery(InternalUserPartition);
}

QVariantMap StoragesService::getExternalStorageInfo()
{
    return tryStartQuery(ExternalStorage);
}

QVariantMapList StoragesService::getExternalStorageDrivesInfo()
{
    return storagesInfo->getExternalStorageDrivesInfo();
}

QVariantMap StoragesService::getSystemStorageInfo()
{
    return tryStartQuery(SystemStorage);
}

QuotaInfoMap StoragesService::getUsersQuotaInfo()
{
    // Quotas are not computed yet: the neutral answer is an empty map.
    return QuotaInfoMap();
}

// The adaptor calls the service within the D-Bus dispatch, so the context of
// the call being served is ours here (Qt hands an adaptor's context to its
// parent). The task keeps copies of the connection and the message: the
// caller's message is gone by the time the task answers.
QVariantMap StoragesService::tryStartQuery(QueryType type)
{
    // An in-process call has nobody to send a late answer to; it gets the
    // empty map and starts nothing.
    if (!calledFromDBus())
        return QVariantMap();

    // A caller that wants no reply still gets its query run and a reply sent;
    // only the delayed-reply bookkeeping is skipped.
    if (message().isReplyRequired())
        setDelayedReply(true);

    const QDBusConnection bus = connection();
    const QDBusMessage call = message();
    const StoragesService *service = this;
    QtConcurrent::run(QThreadPool::globalInstance(), [bus, call, type, service]() {
        const QVariantMap result = service->runQuery(type);
        QDBusConnection(bus).send(call.createReply(QVariantList{QVariant(result)}));
    });
    return QVariantMap();
}

QVariantMap StoragesService::runQuery(QueryType type) const
{
    switch (type) {
    case ExternalStorage:
        return storagesInfo->getExternalStorageInfo();
    case InternalStorage:
    case InternalUserPartition:
    case SystemStorage:
        // The internal storage, user partition and system category queries
        // are not computed yet: the neutral answer is an empty map.
        return QVariantMap();
    }
    return QVariantMap();
}
