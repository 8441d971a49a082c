// SPDX-License-Identifier: BSD-3-Clause
#include "basicservice.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDebug>

BasicService::BasicService(const QString &serviceName, const QString &objectPath, QObject *parent)
    : QObject(parent)
{
    if (isSystemBusConnected())
        BasicService::registerService(serviceName, objectPath);
}

BasicService::~BasicService()
{
    BasicService::unregisterService();
    m_serviceName.clear();
    m_objectPath.clear();
    delete m_adaptor;
    m_adaptor = nullptr;
}

bool BasicService::registerService(const QString &serviceName, const QString &objectPath)
{
    // Without a parent nobody would own and delete the service, so its
    // registration could outlive it.
    if (!parent()) {
        qCritical() << "ERROR: The object has no parent!";
        return m_registered;
    }

    unregisterService();

    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.registerObject(objectPath, this, QDBusConnection::ExportAdaptors)) {
        qWarning().noquote() << QStringLiteral("Object %1 registration failed!").arg(objectPath);
        return false;
    }

    // The object path stays exported when the name cannot be had, and it is not
    // remembered: a later unregisterService() leaves it alone.
    if (!bus.registerService(serviceName)) {
        qWarning().noquote() << QStringLiteral("Unable to register %1 service!").arg(serviceName) << bus.lastError();
        return false;
    }

    m_objectPath = objectPath;
    m_serviceName = serviceName;
    m_registered = true;
    return true;
}

void BasicService::unregisterService()
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!m_objectPath.isEmpty())
        bus.unregisterObject(m_objectPath, QDBusConnection::UnregisterNode);
    if (!m_serviceName.isEmpty())
        bus.unregisterService(m_serviceName);
    m_registered = false;
    m_serviceName.clear();
    m_objectPath.clear();
}

bool BasicService::isRegistered() const
{
    return m_registered;
}

bool BasicService::isSystemBusConnected() const
{
    const bool connected = QDBusConnection::systemBus().isConnected();
    if (!connected)
        qCritical() << "ERROR: No DBus system bus found!";
    return connected;
}

QString BasicService::serviceName() const
{
    return m_serviceName;
}

QString BasicService::objectPath() const
{
    return m_objectPath;
}

void BasicService::setAdaptor(QDBusAbstractAdaptor *adaptor)
{
    if (m_adaptor != adaptor)
        delete m_adaptor;
    m_adaptor = adaptor;
}
