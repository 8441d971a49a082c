// SPDX-License-Identifier: BSD-3-Clause
#include "ofonomodemlist.h"

#include "telephonylogging.h"

#include <qofonomanager.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QTimer>

#include <algorithm>

namespace {

const QString OfonoService = QStringLiteral("org.ofono");
const int FirstCheckDelay = 100; // ms
const int MaxCheckDelay = 5000; // ms

} // namespace

OfonoModemList::OfonoModemList(QObject *parent)
    : QObject(parent)
    , m_ofonoWatcher(new QDBusServiceWatcher(OfonoService, QDBusConnection::systemBus(),
                                             QDBusServiceWatcher::WatchForOwnerChange, this))
    , m_checkTimer(new QTimer(this))
    , m_checkDelay(FirstCheckDelay)
{
    m_checkTimer->setSingleShot(true);
    connect(m_checkTimer, &QTimer::timeout, this, &OfonoModemList::checkModemsRead);
    // The manager reads the list of every oFono that comes; whether that read
    // succeeds is checked a little later. One that goes takes its list along.
    connect(m_ofonoWatcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &newOwner) {
        m_checkDelay = FirstCheckDelay;
        if (newOwner.isEmpty())
            m_checkTimer->stop();
        else
            scheduleCheck();
    });
    makeManager();
    scheduleCheck();
}

QStringList OfonoModemList::modems() const
{
    QStringList modems = m_manager->modems();
    std::sort(modems.begin(), modems.end());
    return modems;
}

void OfonoModemList::makeManager()
{
    delete m_manager;
    m_manager = new QOfonoManager(false, this);
    connect(m_manager, &QOfonoManager::availableChanged, this, &OfonoModemList::availableChanged);
    connect(m_manager, &QOfonoManager::modemsChanged, this, &OfonoModemList::modemsChanged);
}

void OfonoModemList::scheduleCheck()
{
    m_checkTimer->start(m_checkDelay);
    m_checkDelay = qMin(m_checkDelay * 2, MaxCheckDelay);
}

void OfonoModemList::checkModemsRead()
{
    if (m_manager->available()) {
        m_checkDelay = FirstCheckDelay;
        return;
    }
    if (isReadPending()) {
        scheduleCheck();
        return;
    }
    askAgainIfOfonoIsThere();
}

// libqofono keeps the call that reads the list as a QDBusPendingCallWatcher
// below the manager until the answer is in, and says only when a read
// succeeded; an unavailable manager with no such call has had its read fail.
bool OfonoModemList::isReadPending() const
{
    return !m_manager->findChildren<QDBusPendingCallWatcher *>().isEmpty();
}

void OfonoModemList::askAgainIfOfonoIsThere()
{
    const QDBusPendingCall call = QDBusConnection::systemBus().interface()->asyncCall(
        QStringLiteral("NameHasOwner"), OfonoService);
    auto *watcher = new QDBusPendingCallWatcher(call, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher]() {
        watcher->deleteLater();
        const QDBusPendingReply<bool> reply = *watcher;
        // An oFono that is not there is asked when it comes.
        if (reply.isError() || !reply.value() || m_manager->available())
            return;
        qCDebug(lcTelephony) << "oFono modem list not read; asking again";
        makeManager();
        scheduleCheck();
    });
}
