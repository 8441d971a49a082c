// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/plainvalue.h>

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

namespace Plinth {

namespace {

QVariant fromArgument(const QDBusArgument &arg);

QString keyText(const QVariant &key)
{
    const QVariant plain = plainValue(key);
    return plain.toString();
}

QVariant fromArgument(const QDBusArgument &arg)
{
    switch (arg.currentType()) {
    case QDBusArgument::BasicType:
        return plainValue(arg.asVariant());
    case QDBusArgument::VariantType: {
        QDBusVariant inner;
        arg >> inner;
        return plainValue(inner.variant());
    }
    case QDBusArgument::ArrayType: {
        QVariantList list;
        arg.beginArray();
        while (!arg.atEnd())
            list.append(fromArgument(arg));
        arg.endArray();
        return list;
    }
    case QDBusArgument::StructureType: {
        QVariantList fields;
        arg.beginStructure();
        while (!arg.atEnd())
            fields.append(fromArgument(arg));
        arg.endStructure();
        return fields;
    }
    case QDBusArgument::MapType: {
        QVariantMap map;
        arg.beginMap();
        while (!arg.atEnd()) {
            arg.beginMapEntry();
            const QString key = keyText(fromArgument(arg));
            map.insert(key, fromArgument(arg));
            arg.endMapEntry();
        }
        arg.endMap();
        return map;
    }
    case QDBusArgument::MapEntryType:
    case QDBusArgument::UnknownType:
        break;
    }
    return QVariant();
}

} // namespace

QVariant plainValue(const QVariant &value)
{
    const int type = value.userType();
    if (type == qMetaTypeId<QDBusArgument>())
        return fromArgument(value.value<QDBusArgument>());
    if (type == qMetaTypeId<QDBusVariant>())
        return plainValue(value.value<QDBusVariant>().variant());
    if (type == qMetaTypeId<QDBusObjectPath>())
        return value.value<QDBusObjectPath>().path();
    if (type == qMetaTypeId<QDBusSignature>())
        return value.value<QDBusSignature>().signature();
    if (type == qMetaTypeId<QDBusUnixFileDescriptor>())
        return QVariant();
    if (type == QMetaType::QVariantList) {
        QVariantList list = value.toList();
        for (QVariant &element : list)
            element = plainValue(element);
        return list;
    }
    if (type == QMetaType::QVariantMap) {
        QVariantMap map = value.toMap();
        for (QVariant &element : map)
            element = plainValue(element);
        return map;
    }
    if (type == QMetaType::QStringList) {
        // One list type for every array keeps the renderers simple.
        return QVariant(value.toList());
    }
    if (type == QMetaType::QByteArray)
        return QString::fromUtf8(value.toByteArray());
    return value;
}

} // namespace Plinth
