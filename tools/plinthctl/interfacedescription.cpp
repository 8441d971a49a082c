// SPDX-License-Identifier: BSD-3-Clause
#include "interfacedescription.h"

#include <QFile>
#include <QXmlStreamReader>

// Q_INIT_RESOURCE must be called outside any namespace.
static void initInterfaceResources()
{
    Q_INIT_RESOURCE(interfaces);
}

namespace PlinthCtl {

namespace {

DBusMember readMember(QXmlStreamReader &xml, bool isSignal)
{
    DBusMember member;
    member.name = xml.attributes().value(QLatin1String("name")).toString();
    while (xml.readNextStartElement()) {
        if (xml.name() == QLatin1String("arg")) {
            const QXmlStreamAttributes attributes = xml.attributes();
            DBusArgument arg{attributes.value(QLatin1String("name")).toString(),
                             attributes.value(QLatin1String("type")).toString()};
            // Method arguments are "in" unless marked; signal arguments are
            // always what the signal carries.
            const QStringRef direction = attributes.value(QLatin1String("direction"));
            if (isSignal || direction == QLatin1String("out"))
                member.outArgs.append(arg);
            else
                member.inArgs.append(arg);
        }
        xml.skipCurrentElement();
    }
    return member;
}

} // namespace

InterfaceDescription InterfaceDescription::parse(const QByteArray &data, const QString &interfaceName)
{
    InterfaceDescription found;
    QXmlStreamReader xml(data);
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement() || xml.name() != QLatin1String("interface")
            || xml.attributes().value(QLatin1String("name")) != interfaceName) {
            continue;
        }
        InterfaceDescription description;
        description.m_name = interfaceName;
        while (xml.readNextStartElement()) {
            if (xml.name() == QLatin1String("method")) {
                description.m_methods.append(readMember(xml, false));
            } else if (xml.name() == QLatin1String("signal")) {
                description.m_signals.append(readMember(xml, true));
            } else if (xml.name() == QLatin1String("property")) {
                const QXmlStreamAttributes attributes = xml.attributes();
                const QStringRef access = attributes.value(QLatin1String("access"));
                description.m_properties.append({attributes.value(QLatin1String("name")).toString(),
                                                 attributes.value(QLatin1String("type")).toString(),
                                                 access == QLatin1String("read")
                                                     || access == QLatin1String("readwrite")});
                xml.skipCurrentElement();
            } else {
                xml.skipCurrentElement();
            }
        }
        found = description;
        break;
    }
    // Half-read descriptions of broken XML would make the client query a
    // partial interface without saying so.
    if (xml.hasError())
        return InterfaceDescription();
    return found;
}

InterfaceDescription InterfaceDescription::builtIn(const QString &interfaceName)
{
    initInterfaceResources();
    QFile file(QStringLiteral(":/interfaces/") + interfaceName + QStringLiteral(".xml"));
    if (!file.open(QIODevice::ReadOnly))
        return InterfaceDescription();
    return parse(file.readAll(), interfaceName);
}

const DBusMember *InterfaceDescription::signal(const QString &name) const
{
    for (const DBusMember &member : m_signals) {
        if (member.name == name)
            return &member;
    }
    return nullptr;
}

QVector<DBusMember> InterfaceDescription::queries() const
{
    QVector<DBusMember> result;
    for (const DBusMember &member : m_methods) {
        if (member.inArgs.isEmpty() && member.outArgs.size() == 1)
            result.append(member);
    }
    return result;
}

} // namespace PlinthCtl
