// SPDX-License-Identifier: BSD-3-Clause
#ifndef BRISA_ACCESSPOLICY_H
#define BRISA_ACCESSPOLICY_H

#include <QObject>

namespace Brisa {

// The platform's access policy as seen by one client: tells when the policy
// manager ("org.norvu.PolicyManager" on the system bus) changes who may use
// the cameras. The contract it listens to is dbus/org.norvu.PolicyManager.xml.
class AccessPolicy : public QObject
{
    Q_OBJECT

public:
    // Without a system bus to listen on, it says so in the log and never
    // notifies.
    explicit AccessPolicy(QObject *parent = nullptr);

signals:
    void cameraEnabledChanged();
};

} // namespace Brisa

#endif // BRISA_ACCESSPOLICY_H
