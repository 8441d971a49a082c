// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_DAEMONOBJECT_H
#define PLINTH_DAEMONOBJECT_H

#include <plinth/global.h>

#include <QDBusConnection>
#include <QDBusPendingCall>
#include <QObject>
#include <QScopedPointer>

class QDBusMessage;

namespace Plinth {

// What the three object classes share: the connection, the object, its
// interface, and calls that never block. Every call returns at once; wait for
// its answer with a QDBusPendingCallWatcher (or, outside an event loop,
// waitForFinished()).
class PLINTH_QT5_EXPORT DaemonObject : public QObject
{
    Q_OBJECT

public:
    ~DaemonObject() override;

    QDBusConnection connection() const;
    QString path() const;
    QString interface() const;

    // Calls a method without arguments by its name: for members of a newer
    // daemon that this library does not know yet. timeoutMs -1 is QtDBus's
    // default (25 s).
    QDBusPendingCall call(const QString &method, int timeoutMs = -1) const;

protected:
    DaemonObject(const QDBusConnection &bus, const QString &path, const QString &interface, QObject *parent);

    // Delivers the daemon's signal `member` to `slot`, which takes a
    // QDBusMessage. False when QtDBus refuses the subscription.
    bool subscribe(const QString &member, const char *slot);

private:
    class Private;
    const QScopedPointer<Private> d;
};

} // namespace Plinth

#endif // PLINTH_DAEMONOBJECT_H
