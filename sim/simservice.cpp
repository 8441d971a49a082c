#include "simservice.h"

#include "simadaptor.h"

#include <QDebug>

static const QString ServiceName = QStringLiteral("org.norvu.plinth");
static const QString ObjectPath = QStringLiteral("/org/norvu/plinth/SIM");

// The SIM card model is not part of this build yet; until it is, the list of
// cards is empty and no change is ever signalled.
SimService::SimService(QObject *parent)
    : BasicService(ServiceName, ObjectPath, parent)
{
    setAdaptor(new SIMAdaptor(this));
    if (!adaptor())
        qCritical() << "SimAdaptor is not created";
    PlinthTypes::registerVariantMapList();
}

SimService::~SimService() = default;

QVariantMapList SimService::getSimCardsInfo()
{
    return QVariantMapList();
}
