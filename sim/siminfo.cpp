// SPDX-License-Identifier: BSD-3-Clause
#include "siminfo.h"

#include <qofonoextmodemmanager.h>

#include <qofonosimmanager.h>
#include <qofonosimwatcher.h>

#include <QRegularExpression>

namespace {

const QString VoiceSimUsageModeKey = QStringLiteral("/veska/ofono/voice_sim_usage_mode");

} // namespace

SimInfo::SimInfo(QObject *parent)
    : QObject(parent)
    , m_modemManager(QOfonoExtModemManager::instance())
    , m_simWatcher(new QOfonoSimWatcher(this))
    , m_voiceSimUsageModeItem(VoiceSimUsageModeKey)
    , m_voiceSimUsageMode(usageModeFromValue(m_voiceSimUsageModeItem.value()))
{
    connect(m_modemManager.data(), &QOfonoExtModemManager::defaultVoiceSimChanged,
            this, &SimInfo::applyDefaultVoiceSim);
    connect(m_modemManager.data(), &QOfonoExtModemManager::defaultDataSimChanged,
            this, &SimInfo::applyDefaultDataSim);
    connect(m_simWatcher, &QOfonoSimWatcher::presentSimListChanged, this, &SimInfo::takePresentSims);
    connect(&m_voiceSimUsageModeItem, &MGConfItem::valueChanged, this, &SimInfo::applyVoiceSimUsageMode);
    connect(m_modemManager.data(), &QOfonoExtModemManager::readyChanged, this, &SimInfo::countModems);
}

SimInfo::~SimInfo()
{
    delete m_simWatcher;
}

QList<SimCard> SimInfo::getSimCardsInfo() const
{
    return m_simCards;
}

QString SimInfo::simName(const QString &modemPath)
{
    static const QRegularExpression digits(QStringLiteral("\\d+"));
    const QRegularExpressionMatch match = digits.match(modemPath);
    if (!match.hasMatch())
        return QString();
    return QStringLiteral("SIM%1").arg(match.captured(0).toInt() + 1);
}

bool SimInfo::isPreferredDataSim(const QString &subscriberIdentity, const QString &defaultDataSim,
                                 bool multipleModems)
{
    return multipleModems ? subscriberIdentity == defaultDataSim : true;
}

// Unlike data, voice also needs a choice between present cards: with one card
// in a multi-modem device that card takes the calls.
bool SimInfo::isPreferredVoiceSim(const QString &subscriberIdentity, const QString &defaultVoiceSim,
                                  bool multipleModems, int presentSimCount)
{
    return multipleModems && presentSimCount > 1 ? subscriberIdentity == defaultVoiceSim : true;
}

int SimInfo::usageModeFromValue(const QVariant &value)
{
    return value.canConvert<int>() ? value.toInt() : DefaultVoiceSimOnEveryNotice;
}

void SimInfo::applyDefaultVoiceSim(const QString &subscriberIdentity)
{
    readVoiceSimUsageMode();
    // Only one mode ignores a repeated identity; the others announce it again.
    if (subscriberIdentity == m_defaultVoiceSim && m_voiceSimUsageMode == DefaultVoiceSimOnChange)
        return;
    m_defaultVoiceSim = usageModeKeepsDefaultVoiceSim() ? subscriberIdentity : QString();
    rebuild();
    emit preferredVoiceCallSimChanged(m_simCards);
}

void SimInfo::applyDefaultDataSim(const QString &subscriberIdentity)
{
    if (subscriberIdentity == m_defaultDataSim)
        return;
    m_defaultDataSim = subscriberIdentity;
    rebuild();
    emit preferredDataTransferSimChanged(m_simCards);
}

void SimInfo::takePresentSims()
{
    readVoiceSimUsageMode();
    m_presentSims.clear();
    const QList<QOfonoSimManager::SharedPointer> present = m_simWatcher->presentSimList();
    for (const QOfonoSimManager::SharedPointer &sim : present) {
        m_presentSims.append(sim);
        // The first operator name a card reports after a list change is
        // announced; later ones wait for the next list change. A card that
        // stays present keeps its one connection.
        connect(sim.data(), &QOfonoSimManager::serviceProviderNameChanged, this, &SimInfo::announceOperatorName,
                Qt::UniqueConnection);
    }
    rebuild();
    emit simCardsEnabledChanged(m_simCards);
}

// The new name itself is read with the rest of the card.
void SimInfo::announceOperatorName()
{
    if (auto *sim = qobject_cast<QOfonoSimManager *>(sender()))
        disconnect(sim, &QOfonoSimManager::serviceProviderNameChanged, this, &SimInfo::announceOperatorName);
    rebuild();
    emit simCardsEnabledChanged(m_simCards);
}

void SimInfo::applyVoiceSimUsageMode()
{
    readVoiceSimUsageMode();
    applyDefaultVoiceSim(usageModeKeepsDefaultVoiceSim() ? m_modemManager->defaultVoiceSim() : QString());
}

// Counted when readiness changes only: the list and its maps are left as they
// are until the next notice rebuilds them.
void SimInfo::countModems(bool ready)
{
    m_multipleModems = ready && m_modemManager->availableModems().count() > 1;
}

void SimInfo::readVoiceSimUsageMode()
{
    m_voiceSimUsageMode = usageModeFromValue(m_voiceSimUsageModeItem.value());
}

bool SimInfo::usageModeKeepsDefaultVoiceSim() const
{
    return m_voiceSimUsageMode == DefaultVoiceSimOnChange || m_voiceSimUsageMode == DefaultVoiceSimOnEveryNotice;
}

SimCard SimInfo::simCard(const QOfonoSimManager &sim) const
{
    const QString identity = sim.subscriberIdentity();
    SimCard card;
    card.enabled = sim.present();
    card.operatorName = sim.serviceProviderName();
    card.preferredDataTransfer = isPreferredDataSim(identity, m_defaultDataSim, m_multipleModems);
    card.preferredVoiceCall = isPreferredVoiceSim(identity, m_defaultVoiceSim, m_multipleModems,
                                                  m_presentSims.count());
    card.simName = simName(sim.modemPath());
    return card;
}

void SimInfo::rebuild()
{
    m_simCards.clear();
    for (const QSharedPointer<QOfonoSimManager> &sim : qAsConst(m_presentSims))
        m_simCards.append(simCard(*sim));
}
