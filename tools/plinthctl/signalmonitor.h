// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_SIGNALMONITOR_H
#define PLINTHCTL_SIGNALMONITOR_H

#include <QDBusConnection>
#include <QDateTime>
#include <QObject>
#include <QVariantMap>
#include <QVector>

#include <cstdio>

#include "interfacedescription.h"

class QDBusMessage;

namespace Plinth {
class Daemon;
}

namespace PlinthCtl {

// Prints every signal the daemon emits on its three interfaces, one entry per
// signal, as it arrives, and an entry when the daemon leaves the bus or comes
// back. Only signals sent by the owner of "org.norvu.plinth" count: anybody
// on the bus may emit a signal with the daemon's path and interface, and
// those are not the daemon's news.
class SignalMonitor : public QObject
{
    Q_OBJECT

public:
    enum Format { Text, Json };

    SignalMonitor(const QDBusConnection &bus, Format format, FILE *out, QObject *parent = nullptr);

    // Subscribes; false (with a one-line reason) when the bus refuses.
    bool start(QString *errorText);
    // The daemon sends no signal before something has called it: unless it
    // runs, has the bus start it. Returns what happened, for the user; empty
    // when it was running already.
    QString startDaemon();

    // One signal as a plain document:
    //   {"time", "interface", "path", "signal", "arguments": {name: value}}
    // Argument names come from the interface description; arguments it does
    // not describe are named "arg0", "arg1", ...
    static QVariantMap describe(const QString &interface, const QString &path, const QString &member,
                                const QVariantList &arguments, const QDateTime &when,
                                const QVector<InterfaceDescription> &interfaces);
    // The daemon leaving the bus (an empty owner) or coming to it:
    //   {"time", "service", "event": "vanished" or "appeared", "owner"}
    // with the unique name it had or has.
    static QVariantMap describeOwnerChange(const QString &owner, bool appeared, const QDateTime &when);
    static QString text(const QVariantMap &event);
    // One line of compact JSON, so that a reader can take the stream apart
    // line by line.
    static QByteArray jsonLine(const QVariantMap &event);

signals:
    // The connection to the bus is lost (the bus stopped): nothing more can
    // come, not even the daemon's return.
    void busLost();

private slots:
    void handleSignal(const QDBusMessage &message);
    void handleDisconnected();

private:
    void ownerChanged(const QString &owner, bool appeared);
    void print(const QVariantMap &event);

    QDBusConnection m_bus;
    Format m_format;
    FILE *m_out;
    QVector<InterfaceDescription> m_interfaces;
    Plinth::Daemon *m_daemon;
    QString m_owner; // unique name of the daemon, empty while it is away
};

} // namespace PlinthCtl

#endif // PLINTHCTL_SIGNALMONITOR_H
