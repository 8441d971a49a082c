// SPDX-License-Identifier: BSD-3-Clause
#include "sizeformat.h"

namespace PlinthCtl {

QString humanSize(quint64 bytes)
{
    static const char *const units[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024)
        return QString::number(bytes) + QStringLiteral(" B");
    // Integer steps keep the unit choice exact; only the last division is in
    // floating point.
    int unit = 0;
    quint64 whole = bytes / 1024;
    while (whole >= 1024 && unit < 5) {
        whole /= 1024;
        ++unit;
    }
    const double value = double(bytes) / double(quint64(1) << (10 * (unit + 1)));
    QString text = QString::number(value, 'f', 1);
    // 1023.96 KiB rounds up to "1024.0 KiB"; say "1.0 MiB" instead.
    if (text == QLatin1String("1024.0") && unit < 5) {
        ++unit;
        text = QStringLiteral("1.0");
    }
    return text + QLatin1Char(' ') + QLatin1String(units[unit]);
}

QString humanSize(qint64 bytes)
{
    if (bytes >= 0)
        return humanSize(quint64(bytes));
    // The magnitude of the smallest qint64 does not fit a qint64, but does fit
    // a quint64.
    return QLatin1Char('-') + humanSize(quint64(0) - quint64(bytes));
}

} // namespace PlinthCtl
