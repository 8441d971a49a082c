// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_POLICYMANAGER_H
#define PLINTHD_POLICYMANAGER_H

// The policy manager on the system bus, as AccessPolicy listens to it: its
// contract is dbus/org.norvu.PolicyManager.xml. The tests that play the
// manager take the same names from here, so the listener and the manager they
// play cannot drift apart.
namespace PolicyManager {
constexpr char ServiceName[] = "org.norvu.PolicyManager";
constexpr char ObjectPath[] = "/org/norvu/PolicyManager";
constexpr char InterfaceName[] = "org.norvu.PolicyManager";
constexpr char CameraAccessChangedSignal[] = "CameraAccessChanged";
} // namespace PolicyManager

#endif // PLINTHD_POLICYMANAGER_H
