// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_BUSQUERY_H
#define PLINTHCTL_BUSQUERY_H

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusPendingCall>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <QVector>

namespace PlinthCtl {

// A batch of calls to the daemon whose answers are gathered into one document.
// All calls are sent before the first answer is awaited, so the slow storage
// walks of the daemon run side by side instead of one after the other.
class BusQuery
{
public:
    explicit BusQuery(const QDBusConnection &bus);

    QDBusConnection connection() const { return m_bus; }

    // The answer of `call` (a call of `method`, already sent with
    // `timeoutMs`) goes to `place` in the document (a path of map keys, e.g.
    // {"storage", "internal"}). With `merge`, a map answer is merged into the
    // map already there instead of replacing it.
    void add(const QStringList &place, const QString &method, const QDBusPendingCall &call,
             int timeoutMs = defaultTimeoutMs, bool merge = false);

    // Waits for every answer. False on the first failure, with a one-line
    // explanation in errorText().
    bool run();

    QVariantMap document() const { return m_document; }
    QString errorText() const { return m_errorText; }

    // A one-line explanation of a failed call, for a person at a terminal.
    static QString describeError(const QDBusError &error, const QString &method, int timeoutMs);

    static const int defaultTimeoutMs = 25000;

private:
    struct Call
    {
        QStringList place;
        QString method;
        QDBusPendingCall pending;
        int timeoutMs;
        bool merge;
    };

    void store(const Call &call, const QVariant &value);
    static void settle(const QVector<QDBusPendingCall> &calls);

    QDBusConnection m_bus;
    QVector<Call> m_calls;
    QVariantMap m_document;
    QString m_errorText;
};

} // namespace PlinthCtl

#endif // PLINTHCTL_BUSQUERY_H
