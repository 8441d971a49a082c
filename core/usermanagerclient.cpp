// SPDX-License-Identifier: BSD-3-Clause
#include "usermanagerclient.h"

#include <QDBusConnection>

namespace {

const QString UserManagerService = QStringLiteral("org.brisaos.usermanager");
const QString UserManagerPath = QStringLiteral("/");
const QString UserManagerInterface = QStringLiteral("org.brisaos.usermanager");

} // namespace

UserManagerClient::UserManagerClient(QObject *parent)
    : QObject(parent), m_roundTrips(new SharedRoundTrip(this))
{
}

UserManagerClient::~UserManagerClient() = default;

void UserManagerClient::currentUser(const SharedRoundTrip::Answer &answer)
{
    ask(QStringLiteral("currentUser"), QStringLiteral("currentUser"), {}, answer);
}

// Each user's locale is a question of its own.
void UserManagerClient::userLocale(uint uid, const SharedRoundTrip::Answer &answer)
{
    ask(QStringLiteral("getUserLocale %1").arg(uid), QStringLiteral("getUserLocale"), {uid}, answer);
}

void UserManagerClient::setTimeout(int milliseconds)
{
    m_timeout = milliseconds;
}

void UserManagerClient::ask(const QString &key, const QString &method, const QVariantList &arguments,
                            const SharedRoundTrip::Answer &answer)
{
    const int timeout = m_timeout;
    m_roundTrips->join(
            key,
            [method, arguments, timeout] {
                QDBusMessage call = QDBusMessage::createMethodCall(UserManagerService, UserManagerPath,
                                                                   UserManagerInterface, method);
                call.setArguments(arguments);
                return QDBusConnection::systemBus().asyncCall(call, timeout);
            },
            answer);
}
