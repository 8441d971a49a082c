// SPDX-License-Identifier: BSD-3-Clause
#include "simservice.h"

#include "siminfo.h"
#include "simadaptor.h"

static const QString ServiceName = QStringLiteral("org.norvu.plinth");
static const QString ObjectPath = QStringLiteral("/org/norvu/plinth/SIM");

SimService::SimService(QObject *parent)
    : BasicService(ServiceName, ObjectPath, parent)
    , m_simInfo(new SimInfo(this))
{
    setAdaptor(new SIMAdaptor(this));
    PlinthTypes::registerVariantMapList();

    relay(&SimInfo::simCardsEnabledChanged, &SimService::simCardsEnabledChanged);
    relay(&SimInfo::preferredDataTransferSimChanged, &SimService::preferredDataTransferSimChanged);
    relay(&SimInfo::preferredVoiceCallSimChanged, &SimService::preferredVoiceCallSimChanged);
}

SimService::~SimService()
{
    delete m_simInfo;
    m_simInfo = nullptr;
}

QVariantMapList SimService::getSimCardsInfo()
{
    return m_simInfo ? SimCard::toVariantMapList(m_simInfo->getSimCardsInfo()) : QVariantMapList();
}

// The cards become the bus's maps here, where they leave the daemon.
void SimService::relay(void (SimInfo::*providerSignal)(const QList<SimCard> &),
                       void (SimService::*busSignal)(QVariantMapList))
{
    connect(m_simInfo, providerSignal, this, [this, busSignal](const QList<SimCard> &cards) {
        emit (this->*busSignal)(SimCard::toVariantMapList(cards));
    });
}
