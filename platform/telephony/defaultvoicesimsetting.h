// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_DEFAULTVOICESIMSETTING_H
#define PLINTHD_DEFAULTVOICESIMSETTING_H

#include <QObject>
#include <QString>

class MGConfItem;

// The SIM chosen for voice calls: a setting, not a fact of the telephony
// stack. It holds a subscriber identity (IMSI) in the configuration key
// "/veska/ofono/default_voice_sim" (see MGConfItem); unset reads as empty.
class DefaultVoiceSimSetting : public QObject
{
    Q_OBJECT

public:
    explicit DefaultVoiceSimSetting(QObject *parent = nullptr);

    QString subscriberIdentity() const;

signals:
    // The key may hold the same identity as before.
    void changed();

private:
    MGConfItem *m_item;
};

#endif // PLINTHD_DEFAULTVOICESIMSETTING_H
