// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_OFONOMODEM_H
#define PLINTHD_OFONOMODEM_H

#include <QDBusVariant>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QDBusPendingCallWatcher;

// What the modem manager needs to know of one oFono modem: whether its packet
// data connection is powered (org.ofono.ConnectionManager "Powered") and the
// subscriber identity of its SIM (org.ofono.SimManager "SubscriberIdentity").
//
// Both interfaces come and go with the modem's state, as its "Interfaces"
// property says; their properties are read when they appear and followed
// through PropertyChanged. A missing interface, a failed read or a missing
// property means unpowered and no identity. A SIM that oFono reports as no
// longer present has no identity either.
class OfonoModem : public QObject
{
    Q_OBJECT

public:
    // modemProperties: the org.ofono.Modem properties oFono listed with the
    // modem (GetModems, ModemAdded), so its interfaces are known at once.
    OfonoModem(const QString &path, const QVariantMap &modemProperties, QObject *parent = nullptr);

    QString path() const { return m_path; }
    // True when no read of the modem's properties is outstanding.
    bool isSettled() const;
    bool isDataPowered() const { return m_dataPowered; }
    QString subscriberIdentity() const { return m_subscriberIdentity; }

signals:
    // Emitted when either value changes or the last outstanding read ends.
    void changed();

private slots:
    void onModemPropertyChanged(const QString &name, const QDBusVariant &value);
    void onConnectionManagerPropertyChanged(const QString &name, const QDBusVariant &value);
    void onSimManagerPropertyChanged(const QString &name, const QDBusVariant &value);

private:
    // One interface's properties: read when it appears, forgotten when it goes.
    struct Source
    {
        QString interface;
        bool available = false;
        QDBusPendingCallWatcher *pending = nullptr;
    };

    void setInterfaces(const QStringList &interfaces);
    void follow(Source &source, bool available);
    void applyConnectionManager(const QVariantMap &properties);
    void applySimManager(const QVariantMap &properties);
    void setValues(bool dataPowered, const QString &subscriberIdentity);

    QString m_path;
    Source m_connectionManager;
    Source m_simManager;
    bool m_dataPowered = false;
    QString m_subscriberIdentity;
};

#endif // PLINTHD_OFONOMODEM_H
