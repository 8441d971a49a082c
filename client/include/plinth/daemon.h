// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_DAEMON_H
#define PLINTH_DAEMON_H

#include <plinth/global.h>

#include <QDBusConnection>
#include <QDBusPendingReply>
#include <QObject>
#include <QScopedPointer>

namespace Plinth {

// Whether the daemon is on the bus, and starting it.
//
// The bus starts the daemon on the first call made to it (bus activation),
// and only then: it sends no signal before something has called it. A program
// that only listens to signals should therefore start() it once, and follow
// appeared() and vanished() to know when a restart may have made it miss
// changes (ask again then).
class PLINTH_QT5_EXPORT Daemon : public QObject
{
    Q_OBJECT

public:
    // What start() answers, as the bus tells it.
    enum StartResult : uint { Started = 1, AlreadyRunning = 2 };

    explicit Daemon(const QDBusConnection &bus = QDBusConnection::systemBus(), QObject *parent = nullptr);
    ~Daemon() override;

    // Has the bus start the daemon unless it runs; answers a StartResult once
    // the daemon owns its name: AlreadyRunning at once while it runs, on any
    // bus. Where the bus cannot start it (no activation file for it, as on a
    // bus set up by hand) and it does not run, the error is
    // org.freedesktop.DBus.Error.ServiceUnknown. The object learns whether
    // the daemon runs from the bus when it is made (one round trip), and
    // follows it from then on. start() never waits: one made before that
    // first answer is in is the bus's own answer, which on a bus that cannot
    // start the daemon is ServiceUnknown even while it runs.
    QDBusPendingReply<uint> start() const;
    // The unique name of the daemon's connection; the error
    // org.freedesktop.DBus.Error.NameHasNoOwner when it is not running.
    QDBusPendingReply<QString> owner() const;

signals:
    void appeared(const QString &owner);
    void vanished(const QString &formerOwner);

private:
    class Private;
    const QScopedPointer<Private> d;
};

} // namespace Plinth

#endif // PLINTH_DAEMON_H
