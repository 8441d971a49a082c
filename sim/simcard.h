// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SIMCARD_H
#define PLINTHD_SIMCARD_H

#include "dbustypes.h"

#include <QList>
#include <QString>
#include <QVariantMap>

// One SIM card as the SIM object describes it. The model works on these
// values; they become the bus's maps only where they leave the daemon, with
// the keys of one table (simcard.cpp).
struct SimCard
{
    // The telephony stack reports the card as present.
    bool enabled = false;
    QString operatorName;
    bool preferredDataTransfer = false;
    bool preferredVoiceCall = false;
    // "SIM1", "SIM2", ... after the modem's number; empty when its path has none.
    QString simName;

    // Every key, always, in the map's own (key) order.
    QVariantMap toVariantMap() const;
    static QVariantMapList toVariantMapList(const QList<SimCard> &cards);
};

#endif // PLINTHD_SIMCARD_H
