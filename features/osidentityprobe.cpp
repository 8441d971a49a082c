// SPDX-License-Identifier: BSD-3-Clause
#include "osidentityprobe.h"

#include "logging.h"
#include "packagedatabase.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

namespace {

const QByteArray CertificationPackage = QByteArrayLiteral("content-configuration-cert");

const QString SystemdService = QStringLiteral("org.freedesktop.systemd1");
const QString SystemdPath = QStringLiteral("/org/freedesktop/systemd1");
const QString SystemdManagerInterface = QStringLiteral("org.freedesktop.systemd1.Manager");
const QString VirtualizationProperty = QStringLiteral("Virtualization");
// As long as QtDBus lets any other call of the daemon wait: a systemd that
// never answers delays the start by no more than a blocking call would.
const int SystemdAnswerTimeoutMs = 25000;

QDBusPendingCall askVirtualization()
{
    QDBusMessage get = QDBusMessage::createMethodCall(SystemdService, SystemdPath,
                                                      QStringLiteral("org.freedesktop.DBus.Properties"),
                                                      QStringLiteral("Get"));
    get << SystemdManagerInterface << VirtualizationProperty;
    return QDBusConnection::systemBus().asyncCall(get, SystemdAnswerTimeoutMs);
}

} // namespace

OsIdentityProbe::OsIdentityProbe()
    : m_virtualization(askVirtualization())
{
    m_certified = PackageDatabase::hasPackageNamed(CertificationPackage);
}

// systemd knows best whether we run in a virtual machine or a container; both
// count as emulated for applications.
void OsIdentityProbe::collect()
{
    m_virtualization.waitForFinished();
    const QDBusMessage reply = m_virtualization.reply();
    const QVariant virtualization = reply.type() == QDBusMessage::ReplyMessage && reply.arguments().size() == 1
        ? reply.arguments().constFirst().value<QDBusVariant>().variant()
        : QVariant();
    // The property is a string; anything else is no answer.
    if (virtualization.userType() == QMetaType::QString) {
        m_emulated = !virtualization.toString().isEmpty();
        return;
    }
    qCWarning(lcPlinthd) << "Invalid result from 'Virtualization' DBus property";
    m_emulated = false;
}
