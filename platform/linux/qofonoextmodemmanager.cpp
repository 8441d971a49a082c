// SPDX-License-Identifier: BSD-3-Clause
#include "qofonoextmodemmanager.h"

#include "defaultvoicesimsetting.h"
#include "ofonomodem.h"
#include "platformlogging.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QTimer>
#include <QWeakPointer>

namespace {

const QString OfonoService = QStringLiteral("org.ofono");
const QString ManagerPath = QStringLiteral("/");
const QString ManagerInterface = QStringLiteral("org.ofono.Manager");
const int FirstRetryDelay = 100; // ms
const int MaxRetryDelay = 5000; // ms

// GetModems: a(oa{sv}), one object path and its org.ofono.Modem properties per
// modem. Anything else reads as no modems.
QMap<QString, QVariantMap> parseModems(const QDBusMessage &reply)
{
    QMap<QString, QVariantMap> modems;
    if (reply.signature() != QLatin1String("a(oa{sv})") || reply.arguments().size() != 1) {
        qCWarning(lcTelephony) << "Unexpected modem list from oFono, signature" << reply.signature();
        return modems;
    }
    const QDBusArgument list = reply.arguments().constFirst().value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
        QDBusObjectPath path;
        QVariantMap properties;
        list.beginStructure();
        list >> path >> properties;
        list.endStructure();
        modems.insert(path.path(), properties);
    }
    list.endArray();
    return modems;
}

} // namespace

QSharedPointer<QOfonoExtModemManager> QOfonoExtModemManager::instance()
{
    static QWeakPointer<QOfonoExtModemManager> shared;
    QSharedPointer<QOfonoExtModemManager> manager = shared.toStrongRef();
    if (!manager) {
        manager.reset(new QOfonoExtModemManager);
        shared = manager;
    }
    return manager;
}

QOfonoExtModemManager::QOfonoExtModemManager(QObject *parent)
    : QObject(parent)
    , m_serviceWatcher(new QDBusServiceWatcher(OfonoService, QDBusConnection::systemBus(),
                                               QDBusServiceWatcher::WatchForOwnerChange, this))
    , m_voiceSimSetting(new DefaultVoiceSimSetting(this))
    , m_retryTimer(new QTimer(this))
    , m_retryDelay(FirstRetryDelay)
{
    m_retryTimer->setSingleShot(true);
    connect(m_retryTimer, &QTimer::timeout, this, &QOfonoExtModemManager::queryModems);
    // A restart can hand the name straight from one oFono to the next, which
    // is neither a registration nor an unregistration: follow the owner.
    connect(m_serviceWatcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &oldOwner, const QString &newOwner) {
        qCDebug(lcTelephony) << "oFono owner changed from" << oldOwner << "to" << newOwner;
        if (!oldOwner.isEmpty())
            forgetOfono();
        if (!newOwner.isEmpty())
            queryModems();
    });
    connect(m_voiceSimSetting, &DefaultVoiceSimSetting::changed,
            this, &QOfonoExtModemManager::updateDefaultVoiceSim);

    QDBusConnection bus = QDBusConnection::systemBus();
    bus.connect(OfonoService, ManagerPath, ManagerInterface, QStringLiteral("ModemAdded"), this,
                SLOT(onModemAdded(QDBusObjectPath,QVariantMap)));
    bus.connect(OfonoService, ManagerPath, ManagerInterface, QStringLiteral("ModemRemoved"), this,
                SLOT(onModemRemoved(QDBusObjectPath)));

    // The first query waits for the event loop, so that whoever asked for the
    // manager finishes setting up before anything can be announced: a bus
    // adaptor, for one, connects its relays through the event queue, and a
    // notification ahead of that would never reach the bus. When oFono is not
    // there the call fails, and the watcher starts the query when it comes.
    QMetaObject::invokeMethod(this, &QOfonoExtModemManager::queryModems, Qt::QueuedConnection);
}

QOfonoExtModemManager::~QOfonoExtModemManager() = default;

bool QOfonoExtModemManager::ready() const
{
    return m_ready;
}

QStringList QOfonoExtModemManager::availableModems() const
{
    return m_modems.keys();
}

QString QOfonoExtModemManager::defaultDataSim() const
{
    return m_defaultDataSim;
}

QString QOfonoExtModemManager::defaultVoiceSim() const
{
    return m_defaultVoiceSim;
}

void QOfonoExtModemManager::onModemAdded(const QDBusObjectPath &path, const QVariantMap &properties)
{
    // Before the list is read, the answer to GetModems is the whole truth: it
    // is sent after this signal and lists this modem too.
    qCDebug(lcTelephony) << "oFono modem added" << path.path();
    if (!m_ready || m_modems.contains(path.path()))
        return;
    addModem(path.path(), properties);
    emit availableModemsChanged(availableModems());
    updateDefaultDataSim();
}

void QOfonoExtModemManager::onModemRemoved(const QDBusObjectPath &path)
{
    OfonoModem *modem = m_modems.take(path.path());
    if (!modem)
        return;
    delete modem;
    emit availableModemsChanged(availableModems());
    updateDefaultDataSim();
}

void QOfonoExtModemManager::queryModems()
{
    m_retryTimer->stop();
    delete m_modemsQuery;
    const QDBusMessage call = QDBusMessage::createMethodCall(OfonoService, ManagerPath, ManagerInterface,
                                                             QStringLiteral("GetModems"));
    m_modemsQuery = new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(call), this);
    connect(m_modemsQuery, &QDBusPendingCallWatcher::finished, this, &QOfonoExtModemManager::onModemsRead);
}

void QOfonoExtModemManager::onModemsRead(QDBusPendingCallWatcher *watcher)
{
    watcher->deleteLater();
    if (watcher != m_modemsQuery)
        return;
    m_modemsQuery = nullptr;

    const QDBusMessage reply = watcher->reply();
    if (reply.type() == QDBusMessage::ErrorMessage) {
        qCDebug(lcTelephony) << "oFono modem list not available:" << reply.errorName();
        // oFono claims its name before its manager object answers, so a
        // present oFono may fail the first calls; ask again a little later.
        // An absent one is asked when it comes.
        if (reply.errorName() != QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown")
            && reply.errorName() != QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")) {
            m_retryTimer->start(m_retryDelay);
            m_retryDelay = qMin(m_retryDelay * 2, MaxRetryDelay);
        }
        return;
    }
    m_retryDelay = FirstRetryDelay;
    const QMap<QString, QVariantMap> modems = parseModems(reply);
    qCDebug(lcTelephony) << "oFono modems" << modems.keys();
    qDeleteAll(m_modems);
    m_modems.clear();
    for (auto it = modems.constBegin(); it != modems.constEnd(); ++it)
        addModem(it.key(), it.value());

    setReady(true);
    emit availableModemsChanged(availableModems());
    updateDefaultVoiceSim();
    updateDefaultDataSim();
}

void QOfonoExtModemManager::forgetOfono()
{
    m_retryTimer->stop();
    m_retryDelay = FirstRetryDelay;
    delete m_modemsQuery;
    m_modemsQuery = nullptr;
    const bool hadModems = !m_modems.isEmpty();
    qDeleteAll(m_modems);
    m_modems.clear();

    setReady(false);
    if (hadModems)
        emit availableModemsChanged(QStringList());
    updateDefaultVoiceSim();
    updateDefaultDataSim();
}

void QOfonoExtModemManager::addModem(const QString &path, const QVariantMap &properties)
{
    auto *modem = new OfonoModem(path, properties, this);
    connect(modem, &OfonoModem::changed, this, &QOfonoExtModemManager::updateDefaultDataSim);
    m_modems.insert(path, modem);
}

void QOfonoExtModemManager::setReady(bool ready)
{
    if (ready == m_ready)
        return;
    m_ready = ready;
    emit readyChanged(ready);
}

void QOfonoExtModemManager::updateDefaultDataSim()
{
    QString sim;
    if (m_ready) {
        for (const OfonoModem *modem : qAsConst(m_modems)) {
            if (!modem->isSettled())
                return;
        }
        for (const OfonoModem *modem : qAsConst(m_modems)) {
            if (modem->isDataPowered()) {
                sim = modem->subscriberIdentity();
                break;
            }
        }
    }
    if (sim == m_defaultDataSim)
        return;
    m_defaultDataSim = sim;
    qCDebug(lcTelephony) << "Default data SIM" << sim;
    emit defaultDataSimChanged(sim);
}

void QOfonoExtModemManager::updateDefaultVoiceSim()
{
    const QString sim = m_ready ? m_voiceSimSetting->subscriberIdentity() : QString();
    if (sim == m_defaultVoiceSim)
        return;
    m_defaultVoiceSim = sim;
    qCDebug(lcTelephony) << "Default voice SIM" << sim;
    emit defaultVoiceSimChanged(sim);
}
