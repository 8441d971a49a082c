// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHCTL_JSONWRITER_H
#define PLINTHCTL_JSONWRITER_H

#include <QByteArray>
#include <QVariant>

namespace PlinthCtl {

// Serialises a tree of plain values (maps, lists, strings, numbers, booleans)
// as JSON. QJsonValue keeps numbers as doubles, which rounds 64-bit sizes above
// 2^53 (and the daemon deliberately sends wrapped-around unsigned figures); here
// every integer type is written digit for digit.
class JsonWriter
{
public:
    enum Format { Indented, Compact };

    static QByteArray write(const QVariant &value, Format format = Indented);

private:
    explicit JsonWriter(Format format) : m_format(format) {}
    void writeValue(const QVariant &value, int depth);
    void writeString(const QString &text);
    void newline(int depth);

    Format m_format;
    QByteArray m_out;
};

} // namespace PlinthCtl

#endif // PLINTHCTL_JSONWRITER_H
