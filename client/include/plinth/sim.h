// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_SIM_H
#define PLINTH_SIM_H

#include <plinth/daemonobject.h>
#include <plinth/simcard.h>

#include <QDBusPendingReply>

namespace Plinth {

// The object /org/norvu/plinth/SIM: the SIM cards present and which of them
// is preferred for data and for calls. Every signal carries the whole list.
class PLINTH_QT5_EXPORT Sim : public DaemonObject
{
    Q_OBJECT

public:
    explicit Sim(const QDBusConnection &bus = QDBusConnection::systemBus(), QObject *parent = nullptr);
    ~Sim() override;

    // Empty until the telephony service has reported its cards.
    QDBusPendingReply<Plinth::SimCardList> getSimCardsInfo() const;

signals:
    void simCardsEnabledChanged(const Plinth::SimCardList &cards);
    void preferredDataTransferSimChanged(const Plinth::SimCardList &cards);
    void preferredVoiceCallSimChanged(const Plinth::SimCardList &cards);

protected:
    void relay(const QDBusMessage &message) override;
};

} // namespace Plinth

#endif // PLINTH_SIM_H
