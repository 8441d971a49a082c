// SPDX-License-Identifier: BSD-3-Clause
// SysInfo's side of the cameras: following the camera access policy, and
// measuring again when it changes.

#include "sysinfo.h"

#include "cameraresolutions.h"

#include <accesspolicy.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QDBusServiceWatcher>

namespace {

const QString PolicyManagerService = QStringLiteral("org.norvu.PolicyManager");

} // namespace

void SysInfo::watchPolicyManager()
{
    QDBusConnection bus = QDBusConnection::systemBus();
    auto *watcher = new QDBusServiceWatcher(this);
    watcher->setConnection(bus);
    watcher->addWatchedService(PolicyManagerService);
    watcher->setWatchMode(QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration);
    // Not a unique connection, on purpose: a policy manager that appears twice
    // makes each policy change announced twice. The notice carries no state
    // (it always says true), so a repeat only makes a client ask for the
    // resolutions once more, and clients have always seen one notice for each
    // appearance; making it unique would change what they get.
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, [this] {
        if (waitForPolicyManager)
            followCameraAccessPolicy();
    });

    QDBusConnectionInterface *busInterface = bus.interface();
    const QDBusReply<bool> registered = busInterface ? busInterface->isServiceRegistered(PolicyManagerService)
                                                     : QDBusReply<bool>();
    if (registered.isValid() && registered.value()) {
        followCameraAccessPolicy();
        // Later registrations change nothing. Only the watcher's own signals are
        // cut: the bus connection keeps its link to the watcher's destruction.
        disconnect(watcher, &QDBusServiceWatcher::serviceRegistered, nullptr, nullptr);
        disconnect(watcher, &QDBusServiceWatcher::serviceUnregistered, nullptr, nullptr);
        disconnect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, nullptr, nullptr);
    } else {
        waitForPolicyManager = true;
    }

    cameras->measure();
}

void SysInfo::followCameraAccessPolicy()
{
    connect(accessPolicy, &Brisa::AccessPolicy::cameraEnabledChanged, this, &SysInfo::cameraAccessChanged);
}

// The policy's camera state itself is never read: a change is a reason to try
// the cameras again, and clients are told that camera access changed.
void SysInfo::cameraAccessChanged()
{
    cameras->measure();
    emit cameraEnabledChanged(true);
}
