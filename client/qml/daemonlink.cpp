// SPDX-License-Identifier: BSD-3-Clause
#include "daemonlink.h"

#include "daemonpresence.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>

namespace PlinthQml {

DaemonLink::DaemonLink(QObject *parent)
    : QObject(parent)
    , m_presence(DaemonPresence::shared())
    , m_available(m_presence->isAvailable())
{
    connect(m_presence.data(), &DaemonPresence::ownerChanged, this, &DaemonLink::ownerChanged);
}

DaemonLink::~DaemonLink() = default;

bool DaemonLink::isAvailable() const
{
    return m_available;
}

void DaemonLink::beginLoad()
{
    m_answeredBy.clear();
    m_failed = false;
}

void DaemonLink::follow(const QDBusPendingCall &call, const std::function<void(const QDBusMessage &)> &answered)
{
    if (m_pending++ == 0)
        emit busyChanged();
    auto *watcher = new QDBusPendingCallWatcher(call, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, answered] {
        watcher->deleteLater();
        if (watcher->isError())
            m_failed = true;
        else
            m_answeredBy.insert(watcher->reply().service());
        answered(watcher->reply());
        if (--m_pending > 0)
            return;
        emit busyChanged();
        if (m_checkWhenIdle) {
            m_checkWhenIdle = false;
            checkSource();
        }
    });
}

void DaemonLink::ownerChanged()
{
    if (m_available != m_presence->isAvailable()) {
        m_available = m_presence->isAvailable();
        emit availableChanged();
    }
    // Answers on their way may come from the new daemon (the bus starts it
    // for a call and hands the call over): judge once they are in.
    if (isBusy())
        m_checkWhenIdle = true;
    else
        checkSource();
}

void DaemonLink::checkSource()
{
    if (!m_presence->isAvailable())
        return;
    if (m_failed || m_answeredBy != QSet<QString>{m_presence->owner()})
        emit reloadNeeded();
}

} // namespace PlinthQml
