// SPDX-License-Identifier: BSD-3-Clause
#include "signalmonitor.h"

#include "jsonwriter.h"
#include "textreport.h"

#include <plinth/daemon.h>
#include <plinth/plainvalue.h>

#include <QDBusMessage>
#include <QDBusPendingReply>

namespace PlinthCtl {

namespace {

struct Watched
{
    const char *path;
    const char *interface;
};

const Watched watched[] = {
    {"/org/norvu/plinth/Features", "org.norvu.plinth.Features"},
    {"/org/norvu/plinth/SIM", "org.norvu.plinth.SIM"},
    {"/org/norvu/plinth/Storages", "org.norvu.plinth.Storages"},
};

QDBusMessage busDriverCall(const QString &method)
{
    return QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                          QStringLiteral("org.freedesktop.DBus"), method);
}

const QString timeKey = QStringLiteral("time");
const QString interfaceKey = QStringLiteral("interface");
const QString pathKey = QStringLiteral("path");
const QString signalKey = QStringLiteral("signal");
const QString argumentsKey = QStringLiteral("arguments");
const QString serviceKey = QStringLiteral("service");
const QString eventKey = QStringLiteral("event");
const QString ownerKey = QStringLiteral("owner");
const QString appearedEvent = QStringLiteral("appeared");
const QString vanishedEvent = QStringLiteral("vanished");

} // namespace

SignalMonitor::SignalMonitor(const QDBusConnection &bus, Format format, FILE *out, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
    , m_format(format)
    , m_out(out)
    , m_daemon(new Plinth::Daemon(bus, this))
{
    for (const Watched &w : watched)
        m_interfaces.append(InterfaceDescription::builtIn(QLatin1String(w.interface)));
}

bool SignalMonitor::start(QString *errorText)
{
    if (!m_bus.isConnected()) {
        *errorText = QStringLiteral("cannot reach the system bus: %1").arg(m_bus.lastError().message());
        return false;
    }
    // The D-Bus library tells its own connection that the bus has gone with
    // this signal; it never crosses the bus, so no match rule is involved.
    m_bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"), QStringLiteral("org.freedesktop.DBus.Local"),
                  QStringLiteral("Disconnected"), this, SLOT(handleDisconnected()));
    // The sender is checked here rather than left to QtDBus, which learns the
    // name's owner asynchronously and drops what arrives before it knows. As
    // for the signals below, the owner watcher's rule is also added and
    // waited for.
    connect(m_daemon, &Plinth::Daemon::appeared, this, [this](const QString &owner) { ownerChanged(owner, true); });
    connect(m_daemon, &Plinth::Daemon::vanished, this, [this](const QString &owner) { ownerChanged(owner, false); });
    const QDBusMessage ownerRule = m_bus.call(
        busDriverCall(QStringLiteral("AddMatch"))
        << QStringLiteral("type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                          "member='NameOwnerChanged',arg0='%1'").arg(Plinth::serviceName()));
    if (ownerRule.type() != QDBusMessage::ReplyMessage) {
        *errorText = QStringLiteral("cannot reach the system bus: %1").arg(ownerRule.errorMessage());
        return false;
    }
    // An empty member name subscribes to every signal of the interface,
    // including ones this client has never heard of. QtDBus sends its match
    // rule to the bus in the background; the same rule added here and waited
    // for makes sure that nothing the daemon emits once start() returns is
    // missed (a second identical rule changes nothing on the bus).
    for (const Watched &w : watched) {
        const QString path = QLatin1String(w.path);
        const QString interface = QLatin1String(w.interface);
        QString failure;
        if (!m_bus.connect(QString(), path, interface, QString(), this, SLOT(handleSignal(QDBusMessage)))) {
            failure = m_bus.lastError().message();
        } else {
            const QString rule = QStringLiteral("type='signal',path='%1',interface='%2'").arg(path, interface);
            const QDBusMessage added = m_bus.call(busDriverCall(QStringLiteral("AddMatch")) << rule);
            if (added.type() != QDBusMessage::ReplyMessage)
                failure = added.errorMessage();
        }
        if (!failure.isEmpty()) {
            *errorText = QStringLiteral("cannot subscribe to the signals of %1: %2").arg(interface, failure);
            return false;
        }
    }
    QDBusPendingReply<QString> owner = m_daemon->owner();
    owner.waitForFinished();
    if (owner.isValid()) {
        m_owner = owner.value();
    } else if (owner.error().name() != QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")) {
        *errorText = QStringLiteral("cannot reach the system bus: %1").arg(owner.error().message());
        return false;
    }
    return true;
}

QString SignalMonitor::startDaemon()
{
    if (!m_owner.isEmpty())
        return QString();
    QDBusPendingReply<uint> started = m_daemon->start();
    started.waitForFinished();
    if (started.isError()) {
        return QStringLiteral("plinthd is not running and the bus cannot start it (%1); waiting for it")
            .arg(started.error().message());
    }
    // Known before the loop delivers the owner change, which is then no news.
    QDBusPendingReply<QString> owner = m_daemon->owner();
    owner.waitForFinished();
    if (owner.isValid())
        m_owner = owner.value();
    if (started.value() == Plinth::Daemon::AlreadyRunning)
        return QString();
    return QStringLiteral("plinthd was not running; the bus has started it");
}

QVariantMap SignalMonitor::describe(const QString &interface, const QString &path, const QString &member,
                                    const QVariantList &arguments, const QDateTime &when,
                                    const QVector<InterfaceDescription> &interfaces)
{
    const DBusMember *description = nullptr;
    for (const InterfaceDescription &i : interfaces) {
        if (i.name() == interface)
            description = i.signal(member);
    }
    QVariantMap named;
    for (int i = 0; i < arguments.size(); ++i) {
        QString name;
        if (description && i < description->outArgs.size())
            name = description->outArgs.at(i).name;
        if (name.isEmpty())
            name = QStringLiteral("arg") + QString::number(i);
        named.insert(name, Plinth::plainValue(arguments.at(i)));
    }
    return QVariantMap{
        {timeKey, when.toUTC().toString(Qt::ISODateWithMs)},
        {interfaceKey, interface},
        {pathKey, path},
        {signalKey, member},
        {argumentsKey, named},
    };
}

QVariantMap SignalMonitor::describeOwnerChange(const QString &owner, bool appeared, const QDateTime &when)
{
    return QVariantMap{
        {timeKey, when.toUTC().toString(Qt::ISODateWithMs)},
        {serviceKey, Plinth::serviceName()},
        {eventKey, appeared ? appearedEvent : vanishedEvent},
        {ownerKey, owner},
    };
}

QString SignalMonitor::text(const QVariantMap &event)
{
    const QDateTime when = QDateTime::fromString(event.value(timeKey).toString(), Qt::ISODateWithMs);
    const QString time = when.toLocalTime().toString(QStringLiteral("HH:mm:ss.zzz")) + QLatin1Char(' ');
    if (event.contains(eventKey)) {
        const bool appeared = event.value(eventKey) == appearedEvent;
        return time
            + (appeared ? QStringLiteral("plinthd is on the bus as %1") : QStringLiteral("plinthd has left the bus (it was %1)"))
                  .arg(event.value(ownerKey).toString())
            + QLatin1Char('\n');
    }
    TextReport report;
    report.addSection(time + event.value(interfaceKey).toString() + QLatin1Char('.')
                      + event.value(signalKey).toString());
    const QVariantMap arguments = event.value(argumentsKey).toMap();
    for (auto it = arguments.cbegin(); it != arguments.cend(); ++it)
        report.addValue(it.key(), it.value());
    return report.render();
}

QByteArray SignalMonitor::jsonLine(const QVariantMap &event)
{
    return JsonWriter::write(event, JsonWriter::Compact) + '\n';
}

void SignalMonitor::handleSignal(const QDBusMessage &message)
{
    if (m_owner.isEmpty() || message.service() != m_owner)
        return;
    print(describe(message.interface(), message.path(), message.member(), message.arguments(),
                   QDateTime::currentDateTimeUtc(), m_interfaces));
}

void SignalMonitor::handleDisconnected()
{
    emit busLost();
}

void SignalMonitor::ownerChanged(const QString &owner, bool appeared)
{
    // What start() or startDaemon() found out already is not news.
    if (appeared) {
        if (owner == m_owner)
            return;
        m_owner = owner;
    } else {
        if (owner != m_owner)
            return;
        m_owner.clear();
    }
    print(describeOwnerChange(owner, appeared, QDateTime::currentDateTimeUtc()));
}

void SignalMonitor::print(const QVariantMap &event)
{
    const QByteArray out = m_format == Json ? jsonLine(event) : text(event).toUtf8();
    fwrite(out.constData(), 1, size_t(out.size()), m_out);
    // Whoever reads a pipe wants each signal when it happens, not when a
    // buffer fills.
    fflush(m_out);
}

} // namespace PlinthCtl
