// SPDX-License-Identifier: BSD-3-Clause
#include "simcard.h"

#include <mapkeys.h>

using namespace Plinth;

namespace {

// The bus's key for each value of a card, and its D-Bus type: booleans are
// "b", texts "s".
const struct
{
    QLatin1String key;
    QVariant (*value)(const SimCard &card);
} SimCardKeys[] = {
    {QLatin1String(Keys::Enabled), [](const SimCard &card) { return QVariant(card.enabled); }},
    {QLatin1String(Keys::OperatorName), [](const SimCard &card) { return QVariant(card.operatorName); }},
    {QLatin1String(Keys::PreferredDataTransfer), [](const SimCard &card) { return QVariant(card.preferredDataTransfer); }},
    {QLatin1String(Keys::PreferredVoiceCall), [](const SimCard &card) { return QVariant(card.preferredVoiceCall); }},
    {QLatin1String(Keys::SimName), [](const SimCard &card) { return QVariant(card.simName); }},
};

} // namespace

QVariantMap SimCard::toVariantMap() const
{
    QVariantMap map;
    for (const auto &entry : SimCardKeys)
        map.insert(entry.key, entry.value(*this));
    return map;
}

QVariantMapList SimCard::toVariantMapList(const QList<SimCard> &cards)
{
    QVariantMapList maps;
    maps.reserve(cards.size());
    for (const SimCard &card : cards)
        maps.append(card.toVariantMap());
    return maps;
}
