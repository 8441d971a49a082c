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
            this, &SimInfo::defaultVoiceSimChanged);
    connect(m_modemManager.data(), &QOfonoExtModemManager::defaultDataSimChanged,
            this, &SimInfo::defaultDataSimChanged);
    connect(m_simWatcher, &QOfonoSimWatcher::presentSimListChanged, this, &SimInfo::presentSimListChanged);
    connect(&m_voiceSimUsageModeItem, &MGConfItem::valueChanged, this, &SimInfo::voiceSimUsageModeChanged);
    connect(m_modemManager.data(), &QOfonoExtModemManager::readyChanged, this, &SimInfo::readyChanged);
}

SimInfo::~SimInfo()
{
    delete m_simWatcher;
}

QVariantMapList SimInfo::getSimCardsInfo() const
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

QVariantMap SimInfo::simCard(bool enabled, const QString &operatorName, bool preferredDataTransfer,
                             bool preferredVoiceCall, const QString &simName)
{
    QVariantMap card;
    card.insert(QStringLiteral("enabled"), enabled);
    card.insert(QStringLiteral("operatorName"), operatorName);
    card.insert(QStringLiteral("preferredDataTransfer"), preferredDataTransfer);
    card.insert(QStringLiteral("preferredVoiceCall"), preferredVoiceCall);
    card.insert(QStringLiteral("simName"), simName);
    return card;
}

int SimInfo::usageModeFromValue(const QVariant &value)
{
    return value.canConvert<int>() ? value.toInt() : DefaultVoiceSimOnEveryNotice;
}

void SimInfo::defaultVoiceSimChanged(QString value)
{
    readVoiceSimUsageMode();
    // Only one mode ignores a repeated identity; the others announce it again.
    if (value == m_defaultVoiceSim && m_voiceSimUsageMode == DefaultVoiceSimOnChange)
        return;
    m_defaultVoiceSim = usageModeKeepsDefaultVoiceSim() ? value : QString();
    rebuild();
    emit preferredVoiceCallSimChanged(m_simCards);
}

void SimInfo::defaultDataSimChanged(QString value)
{
    if (value == m_defaultDataSim)
        return;
    m_defaultDataSim = value;
    rebuild();
    emit preferredDataTransferSimChanged(m_simCards);
}

void SimInfo::presentSimListChanged()
{
    readVoiceSimUsageMode();
    m_presentSims.clear();
    const QList<QOfonoSimManager::SharedPointer> present = m_simWatcher->presentSimList();
    for (const QOfonoSimManager::SharedPointer &sim : present) {
        m_presentSims.append(sim);
        // Made again on every list change, so a card that stays present
        // collects one more connection each time; update() drops them all at
        // the first operator name change.
        connect(sim.data(), &QOfonoSimManager::serviceProviderNameChanged, this, &SimInfo::update);
    }
    rebuild();
    emit simCardsEnabledChanged(m_simCards);
}

void SimInfo::update(QString spn)
{
    Q_UNUSED(spn)
    // One-shot until the next list change.
    if (auto *sim = qobject_cast<QOfonoSimManager *>(sender()))
        disconnect(sim, &QOfonoSimManager::serviceProviderNameChanged, this, &SimInfo::update);
    rebuild();
    emit simCardsEnabledChanged(m_simCards);
}

void SimInfo::voiceSimUsageModeChanged()
{
    readVoiceSimUsageMode();
    defaultVoiceSimChanged(usageModeKeepsDefaultVoiceSim() ? m_modemManager->defaultVoiceSim() : QString());
}

void SimInfo::readyChanged(bool value)
{
    m_multipleModems = value && m_modemManager->availableModems().count() > 1;
}

void SimInfo::readVoiceSimUsageMode()
{
    m_voiceSimUsageMode = usageModeFromValue(m_voiceSimUsageModeItem.value());
}

bool SimInfo::usageModeKeepsDefaultVoiceSim() const
{
    return m_voiceSimUsageMode == DefaultVoiceSimOnChange || m_voiceSimUsageMode == DefaultVoiceSimOnEveryNotice;
}

QVariantMap SimInfo::simCard(const QOfonoSimManager &sim) const
{
    const QString identity = sim.subscriberIdentity();
    return simCard(sim.present(), sim.serviceProviderName(),
                   isPreferredDataSim(identity, m_defaultDataSim, m_multipleModems),
                   isPreferredVoiceSim(identity, m_defaultVoiceSim, m_multipleModems, m_presentSims.count()),
                   simName(sim.modemPath()));
}

void SimInfo::rebuild()
{
    m_simCards.clear();
    for (const QSharedPointer<QOfonoSimManager> &sim : qAsConst(m_presentSims))
        m_simCards.append(simCard(*sim));
}
