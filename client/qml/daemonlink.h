// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_DAEMONLINK_H
#define PLINTHQML_DAEMONLINK_H

#include <QDBusPendingCall>
#include <QObject>
#include <QSet>
#include <QSharedPointer>

#include <functional>

class QDBusMessage;

namespace PlinthQml {

class DaemonPresence;

// What every object of the module does the same way: it says whether the
// daemon answers (available) and whether an answer is awaited (busy), and it
// knows when to load again: when the daemon on the bus is not the one whose
// answers the object holds, because it restarted, or because it was not there
// when the object loaded. Calls are followed without ever waiting for them.
class DaemonLink : public QObject
{
    Q_OBJECT

public:
    explicit DaemonLink(QObject *parent);
    ~DaemonLink() override;

    bool isAvailable() const;
    bool isBusy() const { return m_pending > 0; }

    // Relays available and busy to the object's signals of those names, and
    // has it load again with `reload` when needed.
    template <typename Object>
    void attach(Object *object, void (Object::*reload)())
    {
        connect(this, &DaemonLink::availableChanged, object, &Object::availableChanged);
        connect(this, &DaemonLink::busyChanged, object, &Object::busyChanged);
        connect(this, &DaemonLink::reloadNeeded, object, reload);
    }

    // A load of everything the object shows begins: what earlier answers
    // came from no longer counts.
    void beginLoad();
    // Follows one call: busy until it is answered; `answered` gets the
    // answer (an error message when the call failed), before busy goes down.
    void follow(const QDBusPendingCall &call, const std::function<void(const QDBusMessage &)> &answered);

signals:
    void availableChanged();
    void busyChanged();
    // The daemon on the bus is another than the one that answered the last
    // load (or a call of it failed): load everything again.
    void reloadNeeded();

private:
    void ownerChanged();
    void checkSource();

    QSharedPointer<DaemonPresence> m_presence;
    bool m_available = false;
    int m_pending = 0;
    // The unique names of the daemons that answered the last load.
    QSet<QString> m_answeredBy;
    bool m_failed = false;
    bool m_checkWhenIdle = false;
};

} // namespace PlinthQml

#endif // PLINTHQML_DAEMONLINK_H
