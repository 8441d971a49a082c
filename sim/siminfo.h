// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SIMINFO_H
#define PLINTHD_SIMINFO_H

#include "simcard.h"

#include <mgconfitem.h>

#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QString>

class QOfonoExtModemManager;
class QOfonoSimManager;
class QOfonoSimWatcher;

// The SIM cards the telephony stack reports as present, one map per card, and
// which of them is preferred for data and for voice calls.
//
// Everything is driven by notifications of the telephony libraries and of the
// voice SIM usage mode setting; nothing is polled and nothing is read before
// the first notification, so the list starts empty. Queries are answered from
// the cache.
class SimInfo : public QObject
{
    Q_OBJECT

public:
    explicit SimInfo(QObject *parent = nullptr);
    ~SimInfo() override;

    QList<SimCard> getSimCardsInfo() const;

    // The rules of one card's values, kept apart so that they can be checked
    // on their own.
    static QString simName(const QString &modemPath);
    static bool isPreferredDataSim(const QString &subscriberIdentity, const QString &defaultDataSim,
                                   bool multipleModems);
    static bool isPreferredVoiceSim(const QString &subscriberIdentity, const QString &defaultVoiceSim,
                                    bool multipleModems, int presentSimCount);
    // The values of the voice-SIM usage setting that keep the modem manager's
    // default voice SIM; any other value means no SIM is preferred for voice.
    enum VoiceSimUsageMode {
        // A repeated notice of the same default voice SIM is not announced.
        DefaultVoiceSimOnChange = 1,
        // Every notice is announced, repeated or not. Also the mode of a
        // setting that is unset or holds something that is not a number.
        DefaultVoiceSimOnEveryNotice = 2,
    };

    // The setting's value as a number when it converts to one (a text that is
    // not a number reads as 0), else DefaultVoiceSimOnEveryNotice.
    static int usageModeFromValue(const QVariant &value);

signals:
    // Each carries the whole rebuilt list.
    void simCardsEnabledChanged(const QList<SimCard> &updatedSimCards);
    void preferredDataTransferSimChanged(const QList<SimCard> &updatedSimCards);
    void preferredVoiceCallSimChanged(const QList<SimCard> &updatedSimCards);

private slots:
    void applyDefaultVoiceSim(const QString &subscriberIdentity);
    void applyDefaultDataSim(const QString &subscriberIdentity);
    void takePresentSims();
    void announceOperatorName();
    void applyVoiceSimUsageMode();
    void countModems(bool ready);

private:
    void readVoiceSimUsageMode();
    // True in the two modes that follow the modem manager's default voice SIM.
    bool usageModeKeepsDefaultVoiceSim() const;
    SimCard simCard(const QOfonoSimManager &sim) const;
    void rebuild();

    QString m_defaultVoiceSim;
    QString m_defaultDataSim;
    QSharedPointer<QOfonoExtModemManager> m_modemManager;
    QOfonoSimWatcher *m_simWatcher;
    QList<QSharedPointer<QOfonoSimManager>> m_presentSims;
    QList<SimCard> m_simCards;
    MGConfItem m_voiceSimUsageModeItem;
    int m_voiceSimUsageMode;
    bool m_multipleModems = false;
};

#endif // PLINTHD_SIMINFO_H
