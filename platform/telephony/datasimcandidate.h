// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_DATASIMCANDIDATE_H
#define PLINTHD_DATASIMCANDIDATE_H

#include <QObject>
#include <QSharedPointer>
#include <QString>

class QOfonoConnectionManager;
class QOfonoModem;
class QOfonoObject;
class QOfonoSimManager;

// What choosing the data SIM needs of one oFono modem, through libqofono:
// whether its packet data connection is powered (org.ofono.ConnectionManager
// "Powered") and the subscriber identity of its SIM (org.ofono.SimManager
// "SubscriberIdentity"), and whether both are known yet.
//
// Both interfaces come and go with the modem's state, as its "Interfaces"
// say; libqofono reads an interface's properties when it appears, and drops
// them when it goes or when oFono does. An interface that is not there, or
// whose properties could not be read, means unpowered and no identity; libqofono
// also drops the identity of a card that is pulled and reads it afresh when
// one is inserted.
class DataSimCandidate : public QObject
{
    Q_OBJECT

public:
    explicit DataSimCandidate(const QString &modemPath, QObject *parent = nullptr);
    ~DataSimCandidate() override;

    // False while the modem or one of its two interfaces is being read, and
    // once oFono has dropped the modem: its values are passing then.
    bool isKnown() const;
    bool isDataPowered() const;
    QString subscriberIdentity() const;

signals:
    // Any of the above may have changed.
    void changed();

private:
    // One libqofono object of the modem, and whether reading it failed since
    // it last appeared.
    struct Source
    {
        QOfonoObject *object;
        QString interface;
        bool failed = false;
    };

    void follow(Source &source);
    bool isListed(const Source &source) const;
    bool isRead(const Source &source) const;
    void forgetFailuresOfAbsentInterfaces();

    QSharedPointer<QOfonoModem> m_modem;
    QOfonoConnectionManager *m_connectionManager;
    QOfonoSimManager *m_simManager;
    Source m_modemSource;
    Source m_connectionManagerSource;
    Source m_simManagerSource;
};

#endif // PLINTHD_DATASIMCANDIDATE_H
