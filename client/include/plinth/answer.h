// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_ANSWER_H
#define PLINTH_ANSWER_H

#include <plinth/global.h>

#include <QVariantMap>

class QDBusArgument;

namespace Plinth {

// The common part of every map the daemon answers with: the keys as they were
// sent, as plain values. The typed accessors of the derived classes read from
// it; values() keeps what a newer daemon sends beyond them, and the exact
// D-Bus type of each value (sizes stay quint64 or qint64).
class PLINTH_QT5_EXPORT Answer
{
public:
    Answer() = default;
    explicit Answer(const QVariantMap &values);

    QVariantMap values() const { return m_values; }
    bool contains(const QString &key) const { return m_values.contains(key); }
    // Signals announce a removal with an empty map.
    bool isEmpty() const { return m_values.isEmpty(); }

    bool operator==(const Answer &other) const { return m_values == other.m_values; }
    bool operator!=(const Answer &other) const { return !(*this == other); }

protected:
    QString text(const QString &key) const;
    bool flag(const QString &key) const;
    uint count(const QString &key) const;
    // A size sent as "t" or as "x"; a negative "x" reads 0.
    quint64 unsignedSize(const QString &key) const;
    // A size sent as "x" (or "t" within its range).
    qint64 signedSize(const QString &key) const;

private:
    QVariantMap m_values;
};

// Every answer goes on the bus as the a{sv} it came as.
PLINTH_QT5_EXPORT QDBusArgument &operator<<(QDBusArgument &argument, const Answer &answer);

} // namespace Plinth

#endif // PLINTH_ANSWER_H
