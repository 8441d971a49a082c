// SPDX-License-Identifier: BSD-3-Clause
#include "daemonpresence.h"

#include <plinth/daemon.h>

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QThread>
#include <QThreadStorage>
#include <QWeakPointer>

namespace PlinthQml {

QSharedPointer<DaemonPresence> DaemonPresence::shared()
{
    // Objects of one thread share it; a QML engine lives on one thread.
    static QThreadStorage<QWeakPointer<DaemonPresence>> presences;
    QSharedPointer<DaemonPresence> presence = presences.localData().toStrongRef();
    if (!presence) {
        // The last object may let go of it from within one of its signals
        // (a view that drops its objects when the daemon leaves): deleted
        // once that is over, or at once when no event loop runs any more to
        // do it (the application is ending).
        presence.reset(new DaemonPresence, [](DaemonPresence *gone) {
            if (QThread::currentThread()->loopLevel() > 0)
                gone->deleteLater();
            else
                delete gone;
        });
        presences.setLocalData(presence);
    }
    return presence;
}

DaemonPresence::DaemonPresence()
    : m_daemon(new Plinth::Daemon(QDBusConnection::systemBus(), this))
{
    connect(m_daemon, &Plinth::Daemon::appeared, this, &DaemonPresence::setOwner);
    connect(m_daemon, &Plinth::Daemon::vanished, this, [this](const QString &formerOwner) {
        // A new owner may have been announced already.
        if (formerOwner == m_owner)
            setOwner(QString());
    });
    // The daemon's watcher subscribed before this question is asked: a change
    // delivered before the answer is older than the answer, one delivered
    // after it newer. Taken in the order they come, the last is the truth.
    auto *answered = new QDBusPendingCallWatcher(m_daemon->owner(), this);
    connect(answered, &QDBusPendingCallWatcher::finished, this, [this, answered] {
        answered->deleteLater();
        const QDBusPendingReply<QString> reply = *answered;
        setOwner(reply.isValid() ? reply.value() : QString());
    });
}

DaemonPresence::~DaemonPresence() = default;

void DaemonPresence::setOwner(const QString &owner)
{
    const bool learnt = !m_ownerKnown;
    m_ownerKnown = true;
    if (owner == m_owner && !learnt)
        return;
    m_owner = owner;
    emit ownerChanged();
}

} // namespace PlinthQml
