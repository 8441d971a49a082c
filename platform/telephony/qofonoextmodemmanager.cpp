// SPDX-License-Identifier: BSD-3-Clause
#include "qofonoextmodemmanager.h"

#include "datasimcandidate.h"
#include "defaultvoicesimsetting.h"
#include "ofonomodemlist.h"
#include "telephonylogging.h"

#include <QWeakPointer>

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
    , m_voiceSimSetting(new DefaultVoiceSimSetting(this))
{
    connect(m_voiceSimSetting, &DefaultVoiceSimSetting::changed,
            this, &QOfonoExtModemManager::updateDefaultVoiceSim);
    // oFono is asked only once the event loop runs, so that whoever asked for
    // the manager finishes setting up before anything can be announced: a bus
    // adaptor, for one, connects its relays through the event queue, and an
    // answer of oFono queued ahead of that would be announced to no one.
    QMetaObject::invokeMethod(this, &QOfonoExtModemManager::followOfono, Qt::QueuedConnection);
}

void QOfonoExtModemManager::followOfono()
{
    m_modemList = new OfonoModemList(this);
    connect(m_modemList, &OfonoModemList::availableChanged, this, &QOfonoExtModemManager::onAvailableChanged);
    connect(m_modemList, &OfonoModemList::modemsChanged, this, &QOfonoExtModemManager::onModemsChanged);
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

void QOfonoExtModemManager::onAvailableChanged(bool available)
{
    if (available == m_ready)
        return;
    takeModems(available ? m_modemList->modems() : QStringList());
    qCDebug(lcTelephony) << "oFono" << (available ? "ready, modems" : "gone") << availableModems();

    setReady(available);
    updateDefaultVoiceSim();
    updateDefaultDataSim();
}

// Before the list is read, the list being taken in is not the whole truth
// yet: it is taken when oFono is ready.
void QOfonoExtModemManager::onModemsChanged()
{
    if (!m_ready)
        return;
    const QStringList modems = m_modemList->modems();
    if (modems == availableModems())
        return;
    qCDebug(lcTelephony) << "oFono modems" << modems;
    takeModems(modems);
    updateDefaultDataSim();
}

void QOfonoExtModemManager::takeModems(const QStringList &modems)
{
    for (auto it = m_modems.begin(); it != m_modems.end();) {
        if (modems.contains(it.key())) {
            ++it;
        } else {
            delete it.value();
            it = m_modems.erase(it);
        }
    }
    for (const QString &path : modems) {
        if (m_modems.contains(path))
            continue;
        auto *modem = new DataSimCandidate(path, this);
        connect(modem, &DataSimCandidate::changed, this, &QOfonoExtModemManager::updateDefaultDataSim);
        m_modems.insert(path, modem);
    }
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
        for (const DataSimCandidate *modem : qAsConst(m_modems)) {
            if (!modem->isKnown())
                return;
        }
        for (const DataSimCandidate *modem : qAsConst(m_modems)) {
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
