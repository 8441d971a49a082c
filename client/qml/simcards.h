// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_SIMCARDS_H
#define PLINTHQML_SIMCARDS_H

#include "keyedlistmodel.h"

#include <QQmlParserStatus>

class QDBusMessage;

namespace Plinth {
class Sim;
}

namespace PlinthQml {

class DaemonLink;

// SimCards: the SIM cards present, one row each in the daemon's order, with
// the keys of the daemon's card map as roles (simName, operatorName,
// enabled, preferredDataTransfer, preferredVoiceCall; "key" is the simName).
// Kept current from the daemon's three SIM signals, each of which carries the
// whole list.
class SimCards : public KeyedListModel, public QQmlParserStatus
{
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    Q_PROPERTY(bool available READ isAvailable NOTIFY availableChanged)
    Q_PROPERTY(bool busy READ isBusy NOTIFY busyChanged)
    // The simName of the card preferred for mobile data, or for calls; empty
    // when no card is.
    Q_PROPERTY(QString preferredDataSim READ preferredDataSim NOTIFY preferredDataSimChanged)
    Q_PROPERTY(QString preferredVoiceSim READ preferredVoiceSim NOTIFY preferredVoiceSimChanged)

public:
    explicit SimCards(QObject *parent = nullptr);
    ~SimCards() override;

    bool isAvailable() const;
    bool isBusy() const;
    QString preferredDataSim() const { return m_preferredDataSim; }
    QString preferredVoiceSim() const { return m_preferredVoiceSim; }

    void classBegin() override;
    void componentComplete() override;

    // Asks for the list again.
    Q_INVOKABLE void refresh();

signals:
    void availableChanged();
    void busyChanged();
    void preferredDataSimChanged();
    void preferredVoiceSimChanged();

private:
    void load();
    void take(const QVariantList &cards);
    QString firstPreferred(const QString &key) const;

    Plinth::Sim *m_sim;
    DaemonLink *m_link;
    QString m_preferredDataSim;
    QString m_preferredVoiceSim;
};

} // namespace PlinthQml

#endif // PLINTHQML_SIMCARDS_H
