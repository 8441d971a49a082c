// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_INTERFACEDESCRIPTION_H
#define PLINTHCTL_INTERFACEDESCRIPTION_H

#include <QByteArray>
#include <QString>
#include <QVector>

namespace PlinthCtl {

struct DBusArgument
{
    QString name;
    QString type;
};

struct DBusMember
{
    QString name;
    QVector<DBusArgument> inArgs;
    QVector<DBusArgument> outArgs; // a signal's arguments count as out
};

struct DBusProperty
{
    QString name;
    QString type;
    bool readable = false;
};

// What the client knows of one bus interface. The client is built with the
// same interface descriptions the daemon's adaptors are generated from, so a
// method or signal added there is queried and shown without touching the
// client.
class InterfaceDescription
{
public:
    // Reads the <interface name="..."> element of introspection XML. Malformed
    // or missing input gives an empty description.
    static InterfaceDescription parse(const QByteArray &xml, const QString &interfaceName);
    // The description built into the client for one of the daemon's interfaces.
    static InterfaceDescription builtIn(const QString &interfaceName);

    QString name() const { return m_name; }
    bool isValid() const { return !m_name.isEmpty(); }
    const QVector<DBusMember> &methods() const { return m_methods; }
    const QVector<DBusMember> &signalList() const { return m_signals; }
    const QVector<DBusProperty> &properties() const { return m_properties; }

    const DBusMember *signal(const QString &name) const;
    // Methods that take no argument and answer exactly one value: the queries.
    QVector<DBusMember> queries() const;

private:
    QString m_name;
    QVector<DBusMember> m_methods;
    QVector<DBusMember> m_signals;
    QVector<DBusProperty> m_properties;
};

} // namespace PlinthCtl

#endif // PLINTHCTL_INTERFACEDESCRIPTION_H
