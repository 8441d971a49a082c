// SPDX-License-Identifier: BSD-3-Clause
#include "sharedroundtrip.h"

#include "logging.h"

#include <QDBusPendingCallWatcher>

SharedRoundTrip::SharedRoundTrip(QObject *parent) : QObject(parent) { }

// The watchers are children and go with this object; their answers are never
// delivered.
SharedRoundTrip::~SharedRoundTrip() = default;

void SharedRoundTrip::join(const QString &key, const Send &send, const Answer &answer)
{
    const auto waiting = m_waiting.find(key);
    if (waiting != m_waiting.end()) {
        waiting->append(answer);
        return;
    }
    m_waiting.insert(key, QVector<Answer>{answer});
    qCDebug(lcPlinthd) << "Round trip started:" << key;
    auto *watcher = new QDBusPendingCallWatcher(send(), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, key](QDBusPendingCallWatcher *finished) { finish(key, finished); });
}

void SharedRoundTrip::finish(const QString &key, QDBusPendingCallWatcher *watcher)
{
    // Taken out before anyone is answered: a continuation that asks the same
    // again starts a new round trip instead of joining the finished one.
    const QVector<Answer> answers = m_waiting.take(key);
    const QDBusMessage reply = watcher->reply();
    watcher->deleteLater();
    for (const Answer &answer : answers)
        answer(reply);
}
