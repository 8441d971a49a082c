// SPDX-License-Identifier: BSD-3-Clause
#include "storagesservice.h"

#include "storagesadaptor.h"
#include "storagesinfo.h"
#include "threadhandoff.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDebug>
#include <QException>
#include <QFutureInterface>
#include <QRunnable>
#include <QThreadPool>

static const QString ServiceName = QStringLiteral("org.norvu.plinth");
static const QString ObjectPath = QStringLiteral("/org/norvu/plinth/Storages");

// One query started by a D-Bus call: what QtConcurrent::run makes of a
// functor (a runnable with a future nobody waits on), written out so that the
// hand-over to the pool thread can be shown to ThreadSanitizer. It keeps its
// own copies of the connection and the call, answers on the pool thread and
// is deleted by the pool.
class StoragesService::QueryTask : public QRunnable, public QFutureInterface<void>
{
public:
    QueryTask(const QDBusConnection &connection, const QDBusMessage &call, QueryType type,
              const StoragesService *service)
        : m_connection(connection), m_call(call), m_type(type), m_service(service)
    {
    }

    void start()
    {
        QThreadPool *pool = QThreadPool::globalInstance();
        setThreadPool(pool);
        setRunnable(this);
        reportStarted();
        PLINTHD_HANDOFF_RELEASE(this);
        pool->start(this, 0);
    }

    // A query that throws sends no reply: the caller runs into its own
    // time-out, as with any lost call.
    void run() override
    {
        PLINTHD_HANDOFF_ACQUIRE(this);
        if (isCanceled()) {
            reportFinished();
            return;
        }
        try {
            const QVariantMap result = m_service->runQuery(m_type);
            m_connection.send(m_call.createReply(QVariantList{QVariant(result)}));
        } catch (const QException &e) {
            reportException(e);
        } catch (...) {
            reportException(QUnhandledException());
        }
        // The service is deleted only after the pool has run dry (the
        // daemon waits for it); this is the task's last use of it.
        PLINTHD_HANDOFF_RELEASE(m_service);
        reportFinished();
    }

private:
    QDBusConnection m_connection;
    const QDBusMessage m_call;
    const QueryType m_type;
    const StoragesService *const m_service;
};

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
    PLINTHD_HANDOFF_ACQUIRE(this);
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
    return storagesInfo->getUsersQuotaInfo();
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

    (new QueryTask(connection(), message(), type, this))->start();
    return QVariantMap();
}

QVariantMap StoragesService::runQuery(QueryType type) const
{
    switch (type) {
    case ExternalStorage:
        return storagesInfo->getExternalStorageInfo();
    case InternalStorage:
        return storagesInfo->getInternalStorageInfo();
    case InternalUserPartition:
        return storagesInfo->getInternalUserPartitionInfo();
    case SystemStorage:
        return storagesInfo->getSystemStorageInfo();
    }
    return QVariantMap();
}
