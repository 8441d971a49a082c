// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/sim.h>

#include <plinth/plainvalue.h>

#include <QDBusMessage>

namespace Plinth {

namespace {

SimCardList cardsOf(const QDBusMessage &message)
{
    SimCardList cards;
    const QVariantList maps = plainValue(message.arguments().value(0)).toList();
    for (const QVariant &map : maps)
        cards.append(SimCard(map.toMap()));
    return cards;
}

} // namespace

Sim::Sim(const QDBusConnection &bus, QObject *parent)
    : DaemonObject(bus, simPath(), simInterface(), parent)
{
}

Sim::~Sim() = default;

QDBusPendingReply<SimCardList> Sim::getSimCardsInfo() const
{
    return call(QStringLiteral("getSimCardsInfo"));
}

void Sim::relay(const QDBusMessage &message)
{
    const SimCardList cards = cardsOf(message);
    const QString member = message.member();
    if (member == QLatin1String("simCardsEnabledChanged"))
        emit simCardsEnabledChanged(cards);
    else if (member == QLatin1String("preferredDataTransferSimChanged"))
        emit preferredDataTransferSimChanged(cards);
    else if (member == QLatin1String("preferredVoiceCallSimChanged"))
        emit preferredVoiceCallSimChanged(cards);
}

} // namespace Plinth
