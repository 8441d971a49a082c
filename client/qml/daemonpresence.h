// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_DAEMONPRESENCE_H
#define PLINTHQML_DAEMONPRESENCE_H

#include <QObject>
#include <QSharedPointer>
#include <QString>

namespace Plinth {
class Daemon;
}

namespace PlinthQml {

// Whether the daemon is on the bus, and which instance of it: one watcher of
// the name for every object of the module on the thread, shared while any of
// them lives. It learns the owner from the bus when it is made and follows
// every change; it never starts the daemon (the objects' calls do).
class DaemonPresence : public QObject
{
    Q_OBJECT

public:
    static QSharedPointer<DaemonPresence> shared();
    ~DaemonPresence() override;

    // The daemon's unique name on the bus; empty while it is away or not
    // known yet.
    QString owner() const { return m_owner; }
    bool isAvailable() const { return !m_owner.isEmpty(); }

signals:
    // The owner was learnt, or changed: the daemon came, went or was
    // replaced by a new instance.
    void ownerChanged();

private:
    DaemonPresence();
    void setOwner(const QString &owner);

    Plinth::Daemon *m_daemon;
    QString m_owner;
    bool m_ownerKnown = false;
};

} // namespace PlinthQml

#endif // PLINTHQML_DAEMONPRESENCE_H
