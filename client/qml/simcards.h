// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_SIMCARDS_H
#define PLINTHQML_SIMCARDS_H

#include "keyedlistmodel.h"

class QDBusMessage;

namespace Plinth {
class Sim;
}

namespace PlinthQml {

// SimCards: the SIM cards present, one row each in the daemon's order, with
// the keys of the daemon's card map as roles (simName, operatorName,
// enabled, preferredDataTransfer, preferredVoiceCall; "key" is the simName).
// Kept current from the daemon's three SIM signals, each of which carries the
// whole list.
class SimCards : public KeyedListModel
{
    Q_OBJECT
    // The simName of the card preferred for mobile data, or for calls; empty
    // when no card is.
    Q_PROPERTY(QString preferredDataSim READ preferredDataSim NOTIFY preferredDataSimChanged)
    Q_PROPERTY(QString preferredVoiceSim READ preferredVoiceSim NOTIFY preferredVoiceSimChanged)

public:
    explicit SimCards(QObject *parent = nullptr);
    ~SimCards() override;

    QString preferredDataSim() const { return m_preferredDataSim; }
    QString preferredVoiceSim() const { return m_preferredVoiceSim; }

    void componentComplete() override;
    void refresh() override;

signals:
    void preferredDataSimChanged();
    void preferredVoiceSimChanged();

private:
    void take(const QVariantList &cards);
    QString firstPreferred(const QString &key) const;

    Plinth::Sim *m_sim;
    QString m_preferredDataSim;
    QString m_preferredVoiceSim;
};

} // namespace PlinthQml

#endif // PLINTHQML_SIMCARDS_H
