// SPDX-License-Identifier: BSD-3-Clause
#include "usermanagerclient.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QThread>

namespace {

const QString UserManagerService = QStringLiteral("org.brisaos.usermanager");
const QString UserManagerPath = QStringLiteral("/");
const QString UserManagerInterface = QStringLiteral("org.brisaos.usermanager");

bool onMainThread()
{
    const QCoreApplication *application = QCoreApplication::instance();
    return application && QThread::currentThread() == application->thread();
}

} // namespace

UserManagerClient::UserManagerClient(QObject *parent)
    : QObject(parent)
    , m_ownConnectionName(QStringLiteral("plinthd-usermanager-%1").arg(quintptr(this), 0, 16))
{
}

// Destroyed on the main thread once no pool thread runs any more (the daemon
// waits for the pool before it deletes the services).
UserManagerClient::~UserManagerClient()
{
    if (m_ownConnectionOpened)
        QDBusConnection::disconnectFromBus(m_ownConnectionName);
}

QDBusMessage UserManagerClient::currentUser()
{
    return call(QStringLiteral("currentUser"), {});
}

QDBusMessage UserManagerClient::userLocale(uint uid)
{
    return call(QStringLiteral("getUserLocale"), {uid});
}

QDBusMessage UserManagerClient::call(const QString &method, const QVariantList &arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(UserManagerService, UserManagerPath,
                                                          UserManagerInterface, method);
    message.setArguments(arguments);
    if (onMainThread())
        return QDBusConnection::systemBus().call(message);
    return callFromOtherThread(message);
}

QDBusMessage UserManagerClient::callFromOtherThread(const QDBusMessage &message)
{
    QMutexLocker locker(&m_ownConnectionLock);
    // A connection that failed (no bus yet) or was lost (the bus restarted) is
    // dropped and opened afresh, so that a later call can succeed.
    if (m_ownConnectionOpened && !QDBusConnection(m_ownConnectionName).isConnected()) {
        QDBusConnection::disconnectFromBus(m_ownConnectionName);
        m_ownConnectionOpened = false;
    }
    if (!m_ownConnectionOpened) {
        QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_ownConnectionName);
        m_ownConnectionOpened = true;
    }
    return QDBusConnection(m_ownConnectionName).call(message);
}
