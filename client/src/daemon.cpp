// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/daemon.h>

#include <QDBusMessage>
#include <QDBusServiceWatcher>

namespace Plinth {

namespace {

QDBusMessage busDriverCall(const QString &method)
{
    return QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                          QStringLiteral("/org/freedesktop/DBus"),
                                          QStringLiteral("org.freedesktop.DBus"), method);
}

} // namespace

class Daemon::Private
{
public:
    QDBusConnection bus;
};

Daemon::Daemon(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , d(new Private{bus})
{
    auto *watcher = new QDBusServiceWatcher(serviceName(), bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &oldOwner, const QString &newOwner) {
                // A new owner can take over directly from the old one.
                if (!oldOwner.isEmpty())
                    emit vanished(oldOwner);
                if (!newOwner.isEmpty())
                    emit appeared(newOwner);
            });
}

Daemon::~Daemon() = default;

QDBusPendingReply<uint> Daemon::start() const
{
    // The flags argument is unused by the bus and must be 0.
    return d->bus.asyncCall(busDriverCall(QStringLiteral("StartServiceByName")) << serviceName() << 0u);
}

QDBusPendingReply<QString> Daemon::owner() const
{
    return d->bus.asyncCall(busDriverCall(QStringLiteral("GetNameOwner")) << serviceName());
}

} // namespace Plinth
