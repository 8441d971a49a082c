// SPDX-License-Identifier: BSD-3-Clause
#include "datasimcandidate.h"

#include "telephonylogging.h"

#include <qofonoconnectionmanager.h>
#include <qofonomodem.h>
#include <qofonosimmanager.h>

namespace {

const QString ConnectionManagerInterface = QStringLiteral("org.ofono.ConnectionManager");
const QString SimManagerInterface = QStringLiteral("org.ofono.SimManager");

} // namespace

DataSimCandidate::DataSimCandidate(const QString &modemPath, QObject *parent)
    : QObject(parent)
    // The modem object is shared with the interfaces below, which follow its
    // "Interfaces" through it; asked with mayBlock false, libqofono reads its
    // properties asynchronously.
    , m_modem(QOfonoModem::instance(modemPath, false))
    , m_connectionManager(new QOfonoConnectionManager(this))
    , m_simManager(new QOfonoSimManager(this))
    , m_modemSource{m_modem.data(), QString()}
    , m_connectionManagerSource{m_connectionManager, ConnectionManagerInterface}
    , m_simManagerSource{m_simManager, SimManagerInterface}
{
    follow(m_modemSource);
    follow(m_connectionManagerSource);
    follow(m_simManagerSource);
    connect(m_modem.data(), &QOfonoModem::interfacesChanged, this, [this]() {
        forgetFailuresOfAbsentInterfaces();
        emit changed();
    });
    connect(m_connectionManager, &QOfonoConnectionManager::poweredChanged, this, &DataSimCandidate::changed);
    connect(m_simManager, &QOfonoSimManager::subscriberIdentityChanged, this, &DataSimCandidate::changed);
    m_connectionManager->setModemPath(modemPath);
    m_simManager->setModemPath(modemPath);
}

DataSimCandidate::~DataSimCandidate() = default;

bool DataSimCandidate::isKnown() const
{
    return isRead(m_modemSource)
           && (!isListed(m_connectionManagerSource) || isRead(m_connectionManagerSource))
           && (!isListed(m_simManagerSource) || isRead(m_simManagerSource));
}

bool DataSimCandidate::isDataPowered() const
{
    return isListed(m_connectionManagerSource) && m_connectionManager->isValid() && m_connectionManager->powered();
}

QString DataSimCandidate::subscriberIdentity() const
{
    return isListed(m_simManagerSource) && m_simManager->isValid() ? m_simManager->subscriberIdentity() : QString();
}

void DataSimCandidate::follow(Source &source)
{
    connect(source.object, &QOfonoObject::validChanged, this, [this, &source](bool valid) {
        if (valid)
            source.failed = false;
        emit changed();
    });
    // libqofono does not read a modem or an interface again after a failed
    // read; until it appears anew, it is known to have no values.
    connect(source.object, &QOfonoObject::reportError, this, [this, &source](const QString &error) {
        qCDebug(lcTelephony) << "Cannot read" << (source.interface.isEmpty() ? QStringLiteral("modem") : source.interface)
                             << "of" << m_modem->objectPath() << error;
        source.failed = true;
        emit changed();
    });
}

bool DataSimCandidate::isListed(const Source &source) const
{
    return m_modem->interfaces().contains(source.interface);
}

bool DataSimCandidate::isRead(const Source &source) const
{
    return source.object->isValid() || source.failed;
}

void DataSimCandidate::forgetFailuresOfAbsentInterfaces()
{
    for (Source *source : {&m_connectionManagerSource, &m_simManagerSource}) {
        if (!isListed(*source))
            source->failed = false;
    }
}
