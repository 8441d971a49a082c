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

    connect(m_simInfo, &SimInfo::simCardsEnabledChanged, this, &SimService::simCardsEnabledChanged);
    connect(m_simInfo, &SimInfo::preferredDataTransferSimChanged,
            this, &SimService::preferredDataTransferSimChanged);
    connect(m_simInfo, &SimInfo::preferredVoiceCallSimChanged, this, &SimService::preferredVoiceCallSimChanged);
}

SimService::~SimService()
{
    delete m_simInfo;
    m_simInfo = nullptr;
}

QVariantMapList SimService::getSimCardsInfo()
{
    return m_simInfo ? m_simInfo->getSimCardsInfo() : QVariantMapList();
}
