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
// interface, calls that never block, and the daemon's signals. Every call
// returns at once; wait for its answer with a QDBusPendingCallWatcher (or,
// outside an event loop, waitForFinished()). An object subscribes to a signal
// of the daemon when a receiver is first connected to its typed signal (in
// the object's thread), which takes one round trip to the bus; an object
// nobody listens to costs the bus nothing.
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

    // Emits the typed signal for one of the daemon's signals, which has the
    // same name.
    virtual void relay(const QDBusMessage &message) = 0;

    void connectNotify(const QMetaMethod &signal) override;

private slots:
    void relaySignal(const QDBusMessage &message);

private:
    class Private;
    const QScopedPointer<Private> d;
};

} // namespace Plinth

#endif // PLINTH_DAEMONOBJECT_H
