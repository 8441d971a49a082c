// SPDX-License-Identifier: BSD-3-Clause
#include "jsonwriter.h"

#include <QLocale>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <cmath>

namespace PlinthCtl {

QByteArray JsonWriter::write(const QVariant &value, Format format)
{
    JsonWriter writer(format);
    writer.writeValue(value, 0);
    if (format == Indented)
        writer.m_out += '\n';
    return writer.m_out;
}

void JsonWriter::newline(int depth)
{
    if (m_format == Indented) {
        m_out += '\n';
        m_out += QByteArray(2 * depth, ' ');
    }
}

void JsonWriter::writeString(const QString &text)
{
    m_out += '"';
    for (const QChar c : text) {
        const ushort u = c.unicode();
        switch (u) {
        case '"': m_out += "\\\""; break;
        case '\\': m_out += "\\\\"; break;
        case '\b': m_out += "\\b"; break;
        case '\f': m_out += "\\f"; break;
        case '\n': m_out += "\\n"; break;
        case '\r': m_out += "\\r"; break;
        case '\t': m_out += "\\t"; break;
        default:
            if (u < 0x20) {
                m_out += "\\u00";
                m_out += QByteArray::number(u, 16).rightJustified(2, '0');
            } else {
                m_out += QString(c).toUtf8();
            }
        }
    }
    m_out += '"';
}

void JsonWriter::writeValue(const QVariant &value, int depth)
{
    const char *const separator = m_format == Indented ? ": " : ":";
    switch (int(value.userType())) {
    case QMetaType::UnknownType:
        m_out += "null";
        return;
    case QMetaType::Bool:
        m_out += value.toBool() ? "true" : "false";
        return;
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::SChar:
        m_out += QByteArray::number(value.toLongLong());
        return;
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UChar:
        m_out += QByteArray::number(value.toULongLong());
        return;
    case QMetaType::Double:
    case QMetaType::Float: {
        const double d = value.toDouble();
        // JSON has no spelling for infinities and NaN.
        if (!std::isfinite(d))
            m_out += "null";
        else
            m_out += QByteArray::number(d, 'g', QLocale::FloatingPointShortest);
        return;
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        if (map.isEmpty()) {
            m_out += "{}";
            return;
        }
        m_out += '{';
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            if (it != map.cbegin())
                m_out += ',';
            newline(depth + 1);
            writeString(it.key());
            m_out += separator;
            writeValue(it.value(), depth + 1);
        }
        newline(depth);
        m_out += '}';
        return;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        const QVariantList list = value.toList();
        if (list.isEmpty()) {
            m_out += "[]";
            return;
        }
        m_out += '[';
        for (int i = 0; i < list.size(); ++i) {
            if (i > 0)
                m_out += ',';
            newline(depth + 1);
            writeValue(list.at(i), depth + 1);
        }
        newline(depth);
        m_out += ']';
        return;
    }
    default:
        writeString(value.toString());
        return;
    }
}

} // namespace PlinthCtl
