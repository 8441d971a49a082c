// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/answer.h>

#include <plinth/plainvalue.h>

#include <QDBusArgument>

#include <limits>

namespace Plinth {

Answer::Answer(const QVariantMap &values)
    : m_values(values)
{
}

QString Answer::text(const QString &key) const
{
    return m_values.value(key).toString();
}

bool Answer::flag(const QString &key) const
{
    return m_values.value(key).toBool();
}

uint Answer::count(const QString &key) const
{
    return m_values.value(key).toUInt();
}

quint64 Answer::unsignedSize(const QString &key) const
{
    const QVariant value = m_values.value(key);
    if (value.userType() == QMetaType::LongLong || value.userType() == QMetaType::Int)
        return quint64(std::max<qint64>(value.toLongLong(), 0));
    return value.toULongLong();
}

qint64 Answer::signedSize(const QString &key) const
{
    const QVariant value = m_values.value(key);
    if (value.userType() == QMetaType::ULongLong || value.userType() == QMetaType::UInt)
        return qint64(std::min<quint64>(value.toULongLong(), quint64(std::numeric_limits<qint64>::max())));
    return value.toLongLong();
}

QDBusArgument &operator<<(QDBusArgument &argument, const Answer &answer)
{
    argument << answer.values();
    return argument;
}

} // namespace Plinth
