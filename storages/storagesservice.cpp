// SPDX-License-Identifier: BSD-3-Clause
#include "storagesservice.h"

#include "delayedreply.h"
#include "sharedcomputation.h"
#include "storagesadaptor.h"
#include "unsharedcopy.h"

#include <QThread>
#include <QThreadPool>

static const QString ServiceName = QStringLiteral("org.norvu.plinth");
static const QString ObjectPath = QStringLiteral("/org/norvu/plinth/Storages");

namespace {

// Distinct computations of one kind under way at once: as many as the pool
// has threads, so that one kind cannot fill the pool's queue with walks that
// differ only in their user while the other kinds wait behind them.
int computationsPerKind()
{
    return qMax(1, QThread::idealThreadCount());
}

} // namespace

StoragesService::StoragesService(QObject *parent)
    : BasicService(ServiceName, ObjectPath, parent)
{
    storagesInfo = new StoragesInfo(this);
    computations = new SharedComputation(QThreadPool::globalInstance(), computationsPerKind(), this);
    setAdaptor(new StoragesAdaptor(this));
    PlinthTypes::registerVariantMapList();
    PlinthTypes::registerVariantMap();
    connect(storagesInfo, &StoragesInfo::externalStorageChanged, this, &StoragesService::externalStorageChanged);
    connect(storagesInfo, &StoragesInfo::externalDriveChanged, this, &StoragesService::externalDriveChanged);
}

// The provider goes first, while the object is still registered: computations
// still running are awaited by the daemon before it deletes the services.
StoragesService::~StoragesService()
{
    delete computations;
    computations = nullptr;
    delete storagesInfo;
    storagesInfo = nullptr;
}

// Each method answers later; what it returns here is discarded by the D-Bus
// layer. An in-process call has nobody to send a late answer to: it gets the
// empty value and starts nothing.
QVariantMap StoragesService::getInternalStorageInfo()
{
    answerLater(InternalStorageFigures);
    return QVariantMap();
}

QVariantMap StoragesService::getInternalUserPartitionInfo()
{
    answerLater(UserPartitionFigures);
    return QVariantMap();
}

QVariantMap StoragesService::getExternalStorageInfo()
{
    answerLater(ExternalStorageFigures);
    return QVariantMap();
}

QVariantMapList StoragesService::getExternalStorageDrivesInfo()
{
    answerLater(ExternalDrives);
    return QVariantMapList();
}

QVariantMap StoragesService::getSystemStorageInfo()
{
    answerLater(SystemStorageFigures);
    return QVariantMap();
}

QuotaInfoMap StoragesService::getUsersQuotaInfo()
{
    answerLater(UsersQuota);
    return QuotaInfoMap();
}

// The adaptor calls the service within the D-Bus dispatch, so the context of
// the call being served is ours here (Qt hands an adaptor's context to its
// parent).
void StoragesService::answerLater(Computation computation)
{
    if (!calledFromDBus())
        return;
    const DelayedReply reply(*this);
    if (!needsCurrentUser(computation)) {
        compute(computation, StoragesInfo::CurrentUser(), reply);
        return;
    }
    storagesInfo->askCurrentUser([this, computation, reply](const StoragesInfo::CurrentUser &user) {
        compute(computation, user, reply);
    });
}

void StoragesService::compute(Computation computation, const StoragesInfo::CurrentUser &user,
                              const DelayedReply &reply)
{
    // The same query for the same user is the same computation.
    const QString key = QStringLiteral("%1 %2").arg(int(computation)).arg(
            !needsCurrentUser(computation) ? QString() : user.known ? QString::number(user.uid)
                                                                    : QStringLiteral("unknown"));
    computations->run(
            computation, key,
            [this, computation, user] { return UnsharedCopy::of(runComputation(computation, user)); },
            [computation, reply](const QVariant &result) {
                reply.send(result.isValid() ? result : neutralAnswer(computation));
            });
}

// On a worker.
QVariant StoragesService::runComputation(Computation computation, const StoragesInfo::CurrentUser &user) const
{
    switch (computation) {
    case ExternalStorageFigures:
        return storagesInfo->getExternalStorageInfo();
    case InternalStorageFigures:
        return storagesInfo->getInternalStorageInfo();
    case UserPartitionFigures:
        return storagesInfo->getInternalUserPartitionInfo(user);
    case SystemStorageFigures:
        return storagesInfo->getSystemStorageInfo();
    case ExternalDrives:
        return QVariant::fromValue(storagesInfo->getExternalStorageDrivesInfo());
    case UsersQuota:
        return QVariant::fromValue(storagesInfo->getUsersQuotaInfo(user));
    }
    return QVariant();
}

bool StoragesService::needsCurrentUser(Computation computation)
{
    return computation == UserPartitionFigures || computation == UsersQuota;
}

QVariant StoragesService::neutralAnswer(Computation computation)
{
    switch (computation) {
    case ExternalDrives:
        return QVariant::fromValue(QVariantMapList());
    case UsersQuota:
        return QVariant::fromValue(QuotaInfoMap());
    default:
        return QVariantMap();
    }
}
