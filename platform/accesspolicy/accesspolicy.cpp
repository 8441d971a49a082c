// SPDX-License-Identifier: BSD-3-Clause
#include "accesspolicy.h"

#include "accesspolicylogging.h"
#include "policymanager.h"

#include <QDBusConnection>
#include <QDBusError>

namespace Brisa {

// Matching on the manager's well-known name makes the bus deliver the signal
// only from whoever owns that name, including an owner that appears after this
// object was made: no other process can fake a policy change.
AccessPolicy::AccessPolicy(QObject *parent)
    : QObject(parent)
{
    QDBusConnection bus = QDBusConnection::systemBus();
    using namespace PolicyManager;
    const bool listening = bus.isConnected()
        && bus.connect(QLatin1String(ServiceName), QLatin1String(ObjectPath), QLatin1String(InterfaceName),
                       QLatin1String(CameraAccessChangedSignal), this,
                       SIGNAL(cameraEnabledChanged()));
    if (!listening)
        qCWarning(lcAccessPolicy) << "Can't listen to the policy manager:" << bus.lastError().message();
}

} // namespace Brisa
