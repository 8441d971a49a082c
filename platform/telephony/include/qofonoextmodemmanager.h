// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_QOFONOEXTMODEMMANAGER_H
#define PLINTHD_QOFONOEXTMODEMMANAGER_H

#include <QMap>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

class DataSimCandidate;
class DefaultVoiceSimSetting;
class OfonoModemList;

// The modems of the telephony stack and the default SIMs for data and voice,
// on oFono ("org.ofono" on the system bus) through libqofono, the daemon's one
// client of oFono:
//
// - ready(): oFono is on the bus and its modem list has been read
//   (QOfonoManager). It turns false when oFono leaves the bus and true again
//   once the list of its new instance is read. A list that cannot be read
//   while oFono is on the bus (an error, or an answer that is not a modem
//   list) is asked for again, at growing intervals; one still waiting for its
//   answer is not.
// - availableModems(): the object paths of oFono's modems in path order (plain
//   string order), as the list was read and then as oFono adds and removes
//   modems; empty while not ready.
// - defaultDataSim(): the subscriber identity (org.ofono.SimManager
//   "SubscriberIdentity") of the SIM of the first modem, in path order, whose
//   org.ofono.ConnectionManager is "Powered"; empty when no modem is, or when
//   that modem's SIM has no identity (DataSimCandidate). It follows both
//   interfaces, so a data SIM switch is announced. It is worked out only when
//   the properties of every listed modem have been read, so a half-read list
//   never announces a passing value.
// - defaultVoiceSim(): the subscriber identity of the voice SIM setting
//   (DefaultVoiceSimSetting); empty when unset.
//
// Both default SIMs belong to the telephony state: they are empty while not
// ready. The order of announcements is fixed: readyChanged(true) comes first,
// with the modem list already in place, then the default voice SIM, then the
// default data SIM once the modems' properties are in. When oFono leaves the
// bus, readyChanged(false) comes first, then the default SIMs turn empty. (An
// oFono that stops normally removes its modems before it leaves; those
// removals are followed like any other, so the data SIM may turn empty first.)
//
// Modems that oFono adds or removes after the list was read are followed:
// availableModems() lists them, and readiness does not change for them.
//
// Nothing here waits for oFono: every libqofono object is made and asked in
// its non-blocking way, and all of them live on the thread of this object.
//
// One object is shared by all users: instance() gives the living one or makes
// a new one. It lives on the thread that first asks for it.
class QOfonoExtModemManager : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool ready READ ready NOTIFY readyChanged)
    Q_PROPERTY(QString defaultDataSim READ defaultDataSim NOTIFY defaultDataSimChanged)
    Q_PROPERTY(QString defaultVoiceSim READ defaultVoiceSim NOTIFY defaultVoiceSimChanged)

public:
    static QSharedPointer<QOfonoExtModemManager> instance();
    ~QOfonoExtModemManager() override;

    bool ready() const;
    QStringList availableModems() const;
    QString defaultDataSim() const;
    QString defaultVoiceSim() const;

signals:
    void readyChanged(bool ready);
    void defaultDataSimChanged(const QString &imsi);
    void defaultVoiceSimChanged(const QString &imsi);

private:
    explicit QOfonoExtModemManager(QObject *parent = nullptr);

    void followOfono();
    void onAvailableChanged(bool available);
    void onModemsChanged();
    void takeModems(const QStringList &modems);
    void setReady(bool ready);
    void updateDefaultDataSim();
    void updateDefaultVoiceSim();

    OfonoModemList *m_modemList = nullptr;
    DefaultVoiceSimSetting *m_voiceSimSetting;
    QMap<QString, DataSimCandidate *> m_modems;
    bool m_ready = false;
    QString m_defaultDataSim;
    QString m_defaultVoiceSim;
};

#endif // PLINTHD_QOFONOEXTMODEMMANAGER_H
