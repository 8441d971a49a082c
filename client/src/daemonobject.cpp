// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/daemonobject.h>

#include <QDBusMessage>
#include <QMetaMethod>
#include <QSet>

namespace Plinth {

class DaemonObject::Private
{
public:
    QDBusConnection bus;
    QString path;
    QString interface;
    QSet<QString> subscribed;
};

DaemonObject::DaemonObject(const QDBusConnection &bus, const QString &path, const QString &interface,
                           QObject *parent)
    : QObject(parent)
    , d(new Private{bus, path, interface, {}})
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

void DaemonObject::connectNotify(const QMetaMethod &signal)
{
    // QObject's own signals (destroyed(), ...) are not the daemon's.
    if (signal.methodType() != QMetaMethod::Signal || signal.enclosingMetaObject() == &QObject::staticMetaObject)
        return;
    const QString member = QString::fromLatin1(signal.name());
    if (d->subscribed.contains(member))
        return;
    // Subscribed by the well-known name: QtDBus then lets through only what
    // the daemon sends, not what anybody else emits with its path.
    if (d->bus.connect(serviceName(), d->path, d->interface, member, this, SLOT(relaySignal(QDBusMessage))))
        d->subscribed.insert(member);
}

void DaemonObject::relaySignal(const QDBusMessage &message)
{
    relay(message);
}

} // namespace Plinth
