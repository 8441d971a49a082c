// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_QOFONOEXTMODEMMANAGER_H
#define PLINTHD_QOFONOEXTMODEMMANAGER_H

#include <QMap>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class DefaultVoiceSimSetting;
class OfonoModem;
class QDBusObjectPath;
class QDBusPendingCallWatcher;
class QDBusServiceWatcher;
class QTimer;

// The modems of the telephony stack and the default SIMs for data and voice,
// on stock oFono ("org.ofono" on the system bus):
//
// - ready(): oFono is on the bus and its modem list has been read
//   (org.ofono.Manager GetModems). It turns false when oFono leaves the bus and
//   true again once the list of its new instance is read. A GetModems that
//   fails while oFono is on the bus is tried again, at growing intervals.
// - availableModems(): the object paths of oFono's modems in path order (plain
//   string order), from GetModems and then ModemAdded and ModemRemoved; empty
//   while not ready.
// - defaultDataSim(): the subscriber identity (org.ofono.SimManager
//   "SubscriberIdentity") of the SIM of the first modem, in path order, whose
//   org.ofono.ConnectionManager is "Powered"; empty when no modem is, or when
//   that modem's SIM has no identity. It follows both interfaces'
//   PropertyChanged, so a data SIM switch is announced. It is worked out only
//   when the properties of every listed modem have been read, so a half-read
//   list never announces a passing value.
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
// Modems that oFono adds after the list was read are listed and announced by
// availableModemsChanged(); readiness does not change for them.
//
// One object is shared by all users: instance() gives the living one or makes
// a new one. It lives on the thread that first asks for it.
class QOfonoExtModemManager : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool ready READ ready NOTIFY readyChanged)
    Q_PROPERTY(QStringList availableModems READ availableModems NOTIFY availableModemsChanged)
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
    void availableModemsChanged(const QStringList &modems);
    void defaultDataSimChanged(const QString &imsi);
    void defaultVoiceSimChanged(const QString &imsi);

private slots:
    void onModemAdded(const QDBusObjectPath &path, const QVariantMap &properties);
    void onModemRemoved(const QDBusObjectPath &path);

private:
    explicit QOfonoExtModemManager(QObject *parent = nullptr);

    void queryModems();
    void onModemsRead(QDBusPendingCallWatcher *watcher);
    void forgetOfono();
    void addModem(const QString &path, const QVariantMap &properties);
    void setReady(bool ready);
    void updateDefaultDataSim();
    void updateDefaultVoiceSim();

    QDBusServiceWatcher *m_serviceWatcher;
    DefaultVoiceSimSetting *m_voiceSimSetting;
    QTimer *m_retryTimer;
    int m_retryDelay;
    QDBusPendingCallWatcher *m_modemsQuery = nullptr;
    QMap<QString, OfonoModem *> m_modems;
    bool m_ready = false;
    QString m_defaultDataSim;
    QString m_defaultVoiceSim;
};

#endif // PLINTHD_QOFONOEXTMODEMMANAGER_H
