// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/daemonobject.h>

#include <QDBusMessage>

namespace Plinth {

class DaemonObject::Private
{
public:
    QDBusConnection bus;
    QString path;
    QString interface;
};

DaemonObject::DaemonObject(const QDBusConnection &bus, const QString &path, const QString &interface,
                           QObject *parent)
    : QObject(parent)
    , d(new Private{bus, path, interface})
{
    registerTypes();
}

DaemonObject::~DaemonObject() = default;

QDBusConnection DaemonObject::connection() const
{
    return d->bus;
}

QString DaemonObject::path() const
{
    return d->path;
}

QString DaemonObject::interface() const
{
    return d->interface;
}

QDBusPendingCall DaemonObject::call(const QString &method, int timeoutMs) const
{
    return d->bus.asyncCall(QDBusMessage::createMethodCall(serviceName(), d->path, d->interface, method), timeoutMs);
}

bool DaemonObject::subscribe(const QString &member, const char *slot)
{
    // Subscribed by the well-known name: QtDBus then lets through only what
    // the daemon sends, not what anybody else emits with its path.
    return d->bus.connect(serviceName(), d->path, d->interface, member, this, slot);
}

} // namespace Plinth
