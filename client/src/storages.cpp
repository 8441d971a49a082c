// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/storages.h>

#include <plinth/plainvalue.h>

#include <QDBusMessage>

namespace Plinth {

class Storages::Private
{
public:
    int queryTimeoutMs = defaultQueryTimeoutMs;
};

Storages::Storages(const QDBusConnection &bus, QObject *parent)
    : DaemonObject(bus, storagesPath(), storagesInterface(), parent)
    , m_private(new Private)
{
}

Storages::~Storages() = default;

int Storages::queryTimeout() const
{
    return m_private->queryTimeoutMs;
}

void Storages::setQueryTimeout(int milliseconds)
{
    m_private->queryTimeoutMs = milliseconds;
}

QDBusPendingReply<InternalStorage> Storages::getInternalStorageInfo() const
{
    return call(QStringLiteral("getInternalStorageInfo"), queryTimeout());
}

QDBusPendingReply<UserPartition> Storages::getInternalUserPartitionInfo() const
{
    return call(QStringLiteral("getInternalUserPartitionInfo"), queryTimeout());
}

QDBusPendingReply<SystemStorage> Storages::getSystemStorageInfo() const
{
    return call(QStringLiteral("getSystemStorageInfo"), queryTimeout());
}

QDBusPendingReply<ExternalDriveList> Storages::getExternalStorageDrivesInfo() const
{
    return call(QStringLiteral("getExternalStorageDrivesInfo"));
}

// Answered in the call, but the daemon measures every user's files first.
QDBusPendingReply<UserQuotaMap> Storages::getUsersQuotaInfo() const
{
    return call(QStringLiteral("getUsersQuotaInfo"), queryTimeout());
}

QDBusPendingReply<ExternalStorageSummary> Storages::getExternalStorageInfo() const
{
    return call(QStringLiteral("getExternalStorageInfo"), queryTimeout());
}

void Storages::relay(const QDBusMessage &message)
{
    const QVariantMap map = plainValue(message.arguments().value(0)).toMap();
    if (message.member() == QLatin1String("externalDriveChanged"))
        emit externalDriveChanged(ExternalDrive(map));
    else if (message.member() == QLatin1String("externalStorageChanged"))
        emit externalStorageChanged(ExternalStorageSummary(map));
}

} // namespace Plinth
