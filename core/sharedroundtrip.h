// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SHAREDROUNDTRIP_H
#define PLINTHD_SHAREDROUNDTRIP_H

#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QHash>
#include <QObject>
#include <QString>
#include <QVector>

#include <functional>

class QDBusPendingCallWatcher;

// Look-ups of the same thing that are in flight at once share one D-Bus round
// trip. The system bus lets a connection have only so many calls outstanding
// (128 by default); a daemon that sent one peer call per client call would be
// refused by the bus as soon as a peer stalls under load. Here a hundred
// callers asking for the current user while the user manager hangs cost one
// outstanding call, and every one of them gets the peer's real answer when it
// comes.
//
// Callers name what they ask by a key ("currentUser", "getUserLocale 100000")
// and attach a continuation. When the reply, an error or QtDBus's time-out
// comes, every attached continuation gets that message, in the order they
// joined. A caller that comes after the answer starts a fresh round trip, so
// an answer is at most one round trip old.
//
// Main thread only: the calls go out on the daemon's shared connection and
// the continuations run in its event loop. Continuations that are still
// waiting when this object goes are dropped without a call.
class SharedRoundTrip : public QObject
{
    Q_OBJECT

public:
    using Answer = std::function<void(const QDBusMessage &reply)>;
    using Send = std::function<QDBusPendingCall()>;

    explicit SharedRoundTrip(QObject *parent = nullptr);
    ~SharedRoundTrip() override;

    // Attaches `answer` to the round trip for `key` in flight, or starts one
    // with `send`.
    void join(const QString &key, const Send &send, const Answer &answer);

private:
    void finish(const QString &key, QDBusPendingCallWatcher *watcher);

    QHash<QString, QVector<Answer>> m_waiting;

    Q_DISABLE_COPY(SharedRoundTrip)
};

#endif // PLINTHD_SHAREDROUNDTRIP_H
