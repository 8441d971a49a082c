// SPDX-License-Identifier: BSD-3-Clause
#include "ofonomodem.h"

#include "platformlogging.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusArgument>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace {

const QString OfonoService = QStringLiteral("org.ofono");
const QString ModemInterface = QStringLiteral("org.ofono.Modem");
const QString ConnectionManagerInterface = QStringLiteral("org.ofono.ConnectionManager");
const QString SimManagerInterface = QStringLiteral("org.ofono.SimManager");
const QString PropertyChanged = QStringLiteral("PropertyChanged");

// Variants inside an a{sv} reach us either demarshalled or, for containers
// QtDBus does not know, as a QDBusArgument.
QStringList toStringList(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<QDBusArgument>())
        return qdbus_cast<QStringList>(value.value<QDBusArgument>());
    return value.toStringList();
}

} // namespace

OfonoModem::OfonoModem(const QString &path, const QVariantMap &modemProperties, QObject *parent)
    : QObject(parent)
    , m_path(path)
{
    m_connectionManager.interface = ConnectionManagerInterface;
    m_simManager.interface = SimManagerInterface;

    // Follow changes before reading, so nothing falls between the two.
    QDBusConnection bus = QDBusConnection::systemBus();
    bus.connect(OfonoService, path, ModemInterface, PropertyChanged, this,
                SLOT(onModemPropertyChanged(QString,QDBusVariant)));
    bus.connect(OfonoService, path, ConnectionManagerInterface, PropertyChanged, this,
                SLOT(onConnectionManagerPropertyChanged(QString,QDBusVariant)));
    bus.connect(OfonoService, path, SimManagerInterface, PropertyChanged, this,
                SLOT(onSimManagerPropertyChanged(QString,QDBusVariant)));

    setInterfaces(toStringList(modemProperties.value(QStringLiteral("Interfaces"))));
}

bool OfonoModem::isSettled() const
{
    return !m_connectionManager.pending && !m_simManager.pending;
}

void OfonoModem::onModemPropertyChanged(const QString &name, const QDBusVariant &value)
{
    if (name == QLatin1String("Interfaces"))
        setInterfaces(toStringList(value.variant()));
}

void OfonoModem::onConnectionManagerPropertyChanged(const QString &name, const QDBusVariant &value)
{
    if (name == QLatin1String("Powered"))
        setValues(value.variant().toBool(), m_subscriberIdentity);
}

void OfonoModem::onSimManagerPropertyChanged(const QString &name, const QDBusVariant &value)
{
    if (name == QLatin1String("SubscriberIdentity")) {
        setValues(m_dataPowered, value.variant().toString());
    } else if (name == QLatin1String("Present")) {
        // oFono drops the identity with the card and announces it again once a
        // card has been read; read it afresh rather than trust the old one.
        // The read starts first, so that the change below comes unsettled.
        if (value.variant().toBool() && m_simManager.available) {
            m_simManager.available = false;
            follow(m_simManager, true);
        }
        setValues(m_dataPowered, QString());
    }
}

void OfonoModem::setInterfaces(const QStringList &interfaces)
{
    follow(m_connectionManager, interfaces.contains(ConnectionManagerInterface));
    follow(m_simManager, interfaces.contains(SimManagerInterface));
}

void OfonoModem::follow(Source &source, bool available)
{
    if (available == source.available)
        return;
    source.available = available;
    delete source.pending;
    source.pending = nullptr;

    const bool isConnectionManager = &source == &m_connectionManager;
    if (!available) {
        if (isConnectionManager)
            applyConnectionManager(QVariantMap());
        else
            applySimManager(QVariantMap());
        return;
    }

    const QDBusMessage call = QDBusMessage::createMethodCall(OfonoService, m_path, source.interface,
                                                             QStringLiteral("GetProperties"));
    auto *watcher = new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(call), this);
    source.pending = watcher;
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, watcher, sourcePointer = &source, isConnectionManager]() {
        watcher->deleteLater();
        if (sourcePointer->pending != watcher)
            return;
        sourcePointer->pending = nullptr;
        QDBusPendingReply<QVariantMap> reply = *watcher;
        QVariantMap properties;
        if (reply.isError())
            qCDebug(lcTelephony) << "Cannot read" << sourcePointer->interface << "of" << m_path
                                 << reply.error().message();
        else
            properties = reply.value();
        if (isConnectionManager)
            applyConnectionManager(properties);
        else
            applySimManager(properties);
        // Settling is news even when the values stayed the same.
        emit changed();
    });
}

void OfonoModem::applyConnectionManager(const QVariantMap &properties)
{
    setValues(properties.value(QStringLiteral("Powered")).toBool(), m_subscriberIdentity);
}

void OfonoModem::applySimManager(const QVariantMap &properties)
{
    const bool present = properties.value(QStringLiteral("Present"), true).toBool();
    setValues(m_dataPowered,
              present ? properties.value(QStringLiteral("SubscriberIdentity")).toString() : QString());
}

void OfonoModem::setValues(bool dataPowered, const QString &subscriberIdentity)
{
    if (dataPowered == m_dataPowered && subscriberIdentity == m_subscriberIdentity)
        return;
    m_dataPowered = dataPowered;
    m_subscriberIdentity = subscriberIdentity;
    emit changed();
}
