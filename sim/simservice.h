// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SIMSERVICE_H
#define PLINTHD_SIMSERVICE_H

#include "basicservice.h"
#include "dbustypes.h"

class SimInfo;
struct SimCard;

// "/org/norvu/plinth/SIM": the SIM cards the telephony stack reports, and which
// of them is preferred for data and for voice. Every change signal carries the
// whole list.
class SimService : public BasicService
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.SIM")

public:
    explicit SimService(QObject *parent);
    ~SimService() override;

signals:
    void simCardsEnabledChanged(QVariantMapList updatedSimCards);
    void preferredDataTransferSimChanged(QVariantMapList updatedSimCards);
    void preferredVoiceCallSimChanged(QVariantMapList updatedSimCards);

public slots:
    QVariantMapList getSimCardsInfo();

private:
    void relay(void (SimInfo::*providerSignal)(const QList<SimCard> &),
               void (SimService::*busSignal)(QVariantMapList));

    SimInfo *m_simInfo;
};

#endif // PLINTHD_SIMSERVICE_H
