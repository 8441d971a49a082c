// SPDX-License-Identifier: BSD-3-Clause
#include "simcards.h"

#include "daemonlink.h"

#include <plinth/mapkeys.h>
#include <plinth/plainvalue.h>
#include <plinth/sim.h>

#include <QDBusMessage>

#include <algorithm>

namespace PlinthQml {

namespace {

const QString NameKey = QLatin1String(Plinth::Keys::SimName);
const QString DataKey = QLatin1String(Plinth::Keys::PreferredDataTransfer);
const QString VoiceKey = QLatin1String(Plinth::Keys::PreferredVoiceCall);

QVariantList cardMaps(const Plinth::SimCardList &cards)
{
    QVariantList maps;
    for (const Plinth::SimCard &card : cards)
        maps.append(card.values());
    return maps;
}

} // namespace

SimCards::SimCards(QObject *parent)
    : KeyedListModel({NameKey, QLatin1String(Plinth::Keys::OperatorName), QLatin1String(Plinth::Keys::Enabled), DataKey,
                      VoiceKey},
                     parent)
    , m_sim(new Plinth::Sim(QDBusConnection::systemBus(), this))
{
}

SimCards::~SimCards() = default;

void SimCards::componentComplete()
{
    // Each signal carries the whole list, and the daemon answers the list in
    // the call from the same list: what comes last is the newest. Subscribed
    // before the first question, so that nothing falls between.
    const auto follow = [this](const Plinth::SimCardList &cards) { take(cardMaps(cards)); };
    connect(m_sim, &Plinth::Sim::simCardsEnabledChanged, this, follow);
    connect(m_sim, &Plinth::Sim::preferredDataTransferSimChanged, this, follow);
    connect(m_sim, &Plinth::Sim::preferredVoiceCallSimChanged, this, follow);
    refresh();
}

void SimCards::refresh()
{
    link()->beginLoad();
    link()->follow(m_sim->getSimCardsInfo(), [this](const QDBusMessage &answer) {
        // Without an answer the rows stay as they were.
        if (answer.type() == QDBusMessage::ReplyMessage)
            take(Plinth::plainValue(answer.arguments().value(0)).toList());
    });
}

void SimCards::take(const QVariantList &cards)
{
    QVector<Entry> next;
    for (const QVariant &card : cards) {
        const QVariantMap values = card.toMap();
        const QString name = values.value(NameKey).toString();
        // Slots are named apart; a card whose slot has no name (or a name
        // twice) still gets a row of its own.
        QString key = name;
        for (int n = 2; std::any_of(next.cbegin(), next.cend(), [&](const Entry &e) { return e.key == key; }); ++n)
            key = name + QLatin1Char('#') + QString::number(n);
        next.append({key, values});
    }
    update(next);
    const QString data = firstPreferred(DataKey);
    if (data != m_preferredDataSim) {
        m_preferredDataSim = data;
        emit preferredDataSimChanged();
    }
    const QString voice = firstPreferred(VoiceKey);
    if (voice != m_preferredVoiceSim) {
        m_preferredVoiceSim = voice;
        emit preferredVoiceSimChanged();
    }
}

QString SimCards::firstPreferred(const QString &key) const
{
    for (const Entry &entry : entries()) {
        if (entry.values.value(key).toBool())
            return entry.values.value(NameKey).toString();
    }
    return QString();
}

} // namespace PlinthQml
