// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_BASICSERVICE_H
#define PLINTHD_BASICSERVICE_H

#include <QObject>
#include <QString>

class QDBusAbstractAdaptor;

// Common base of the daemon's bus objects: owns the object's adaptor, claims its
// object path and the shared bus name on the system bus, and gives both back when
// it goes away.
class BasicService : public QObject
{
    Q_OBJECT

public:
    BasicService(const QString &serviceName, const QString &objectPath, QObject *parent);
    ~BasicService() override;

public slots:
    virtual bool registerService(const QString &serviceName, const QString &objectPath);
    virtual void unregisterService();
    virtual bool isRegistered() const;
    virtual bool isSystemBusConnected() const;
    virtual QString serviceName() const;
    virtual QString objectPath() const;

protected:
    // Takes ownership; a previous adaptor is deleted.
    void setAdaptor(QDBusAbstractAdaptor *adaptor);
    QDBusAbstractAdaptor *adaptor() const { return m_adaptor; }

private:
    QDBusAbstractAdaptor *m_adaptor = nullptr;
    bool m_registered = false;
    QString m_serviceName;
    QString m_objectPath;
};

#endif // PLINTHD_BASICSERVICE_H
