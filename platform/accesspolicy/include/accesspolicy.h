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
    static const char ServiceName[];
    static const char ObjectPath[];
    static const char InterfaceName[];
    static const char CameraAccessChangedSignal[];

    explicit AccessPolicy(QObject *parent = nullptr);

    // False when there was no system bus to listen on.
    bool isListening() const { return m_listening; }

signals:
    void cameraEnabledChanged();

private:
    bool m_listening = false;
};

} // namespace Brisa

#endif // BRISA_ACCESSPOLICY_H
