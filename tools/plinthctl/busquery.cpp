// SPDX-License-Identifier: BSD-3-Clause
#include "busquery.h"

#include <plinth/global.h>
#include <plinth/plainvalue.h>

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QElapsedTimer>
#include <QThread>

namespace PlinthCtl {

namespace {

const int settleTimeMs = 2000;

// Writes `value` at `place` inside `map`, creating the maps on the way.
void insertAt(QVariantMap &map, const QStringList &place, int index, const QVariant &value, bool merge)
{
    const QString &key = place.at(index);
    if (index + 1 < place.size()) {
        QVariantMap inner = map.value(key).toMap();
        insertAt(inner, place, index + 1, value, merge);
        map.insert(key, inner);
        return;
    }
    if (merge && value.userType() == QMetaType::QVariantMap) {
        QVariantMap inner = map.value(key).toMap();
        const QVariantMap extra = value.toMap();
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            inner.insert(it.key(), it.value());
        map.insert(key, inner);
        return;
    }
    map.insert(key, value);
}

} // namespace

BusQuery::BusQuery(const QDBusConnection &bus)
    : m_bus(bus)
{
}

void BusQuery::add(const QStringList &place, const QString &method, const QDBusPendingCall &call, int timeoutMs,
                   bool merge)
{
    m_calls.append(Call{place, method, call, timeoutMs, merge});
}

QString BusQuery::describeError(const QDBusError &error, const QString &method, int timeoutMs)
{
    if (error.type() == QDBusError::ServiceUnknown
        || error.name() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")) {
        return QStringLiteral("plinthd is not running: nobody owns %1 on the system bus").arg(Plinth::serviceName());
    }
    switch (error.type()) {
    case QDBusError::Disconnected:
    case QDBusError::NoServer:
        return QStringLiteral("cannot reach the system bus: %1").arg(error.message());
    case QDBusError::AccessDenied:
        return QStringLiteral("%1: access denied: %2").arg(method, error.message());
    case QDBusError::NoReply:
    case QDBusError::Timeout:
    case QDBusError::TimedOut:
        return QStringLiteral("%1: plinthd gave no answer within %2 s").arg(method).arg(timeoutMs / 1000);
    case QDBusError::UnknownMethod:
    case QDBusError::UnknownObject:
    case QDBusError::UnknownInterface:
        return QStringLiteral("%1: this plinthd does not offer it (%2)").arg(method, error.message());
    default:
        break;
    }
    // Bus activation failures ("org.freedesktop.DBus.Error.Spawn.*") come as
    // errors Qt has no type for.
    if (error.name().startsWith(QLatin1String("org.freedesktop.DBus.Error.Spawn.")))
        return QStringLiteral("plinthd could not be started: %1").arg(error.message());
    return QStringLiteral("%1 failed: %2: %3").arg(method, error.name(), error.message());
}

void BusQuery::store(const Call &call, const QVariant &value)
{
    if (!call.place.isEmpty())
        insertAt(m_document, call.place, 0, value, call.merge);
}

void BusQuery::settle(const QVector<QDBusPendingCall> &calls)
{
    // When one call fails the others mostly fail at once too (no daemon, no
    // right to ask); their answers are let in before the client exits, so that
    // QtDBus's thread is not still handling them while the process goes away.
    // A daemon that hangs is not waited for beyond a moment.
    QElapsedTimer waited;
    waited.start();
    for (const QDBusPendingCall &call : calls) {
        while (!call.isFinished() && waited.elapsed() < settleTimeMs)
            QThread::msleep(5);
    }
}

bool BusQuery::run()
{
    m_errorText.clear();
    if (!m_bus.isConnected()) {
        m_errorText = describeError(QDBusError(QDBusError::Disconnected, m_bus.lastError().message()), QString(), 0);
        return false;
    }
    QVector<QDBusPendingCall> pending;
    pending.reserve(m_calls.size());
    for (const Call &call : qAsConst(m_calls))
        pending.append(call.pending);
    for (int i = 0; i < pending.size(); ++i) {
        QDBusPendingCall &answer = pending[i];
        answer.waitForFinished();
        const Call &call = m_calls.at(i);
        if (answer.isError()) {
            m_errorText = describeError(answer.error(), call.method, call.timeoutMs);
            settle(pending.mid(i + 1));
            return false;
        }
        const QList<QVariant> arguments = answer.reply().arguments();
        store(call, arguments.isEmpty() ? QVariant() : Plinth::plainValue(arguments.first()));
    }
    m_calls.clear();
    return true;
}

} // namespace PlinthCtl
