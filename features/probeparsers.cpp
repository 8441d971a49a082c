// SPDX-License-Identifier: BSD-3-Clause
#include "probeparsers.h"

#include <QRegularExpression>

namespace ProbeParsers {

QStringList splitLines(const QByteArray &bytes)
{
    const int textLength = int(qstrnlen(bytes.constData(), uint(bytes.size())));
    return QString::fromUtf8(bytes.constData(), textLength).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QString firstCapture(const QString &pattern, const QStringList &lines)
{
    const QRegularExpression expression(pattern);
    for (const QString &line : lines) {
        const QRegularExpressionMatch match = expression.match(line);
        if (match.hasMatch())
            return match.captured(1);
    }
    return QString();
}

QVariantList coresClockSpeeds(const QStringList &lines)
{
    QVariantList speeds;
    for (const QString &line : lines) {
        uint value = 0;
        if (!line.contains(QLatin1Char('-')))
            value = line.toUInt(nullptr, 10);
        else if (!speeds.isEmpty())
            value = speeds.constLast().toUInt();
        speeds.append(QVariant::fromValue<uint>(value / 1000));
    }
    return speeds;
}

QString modelFromCompatible(const QByteArray &bytes)
{
    const QList<QByteArray> pieces = bytes.trimmed().split(',');
    for (auto piece = pieces.crbegin(); piece != pieces.crend(); ++piece) {
        if (piece->isEmpty())
            continue;
        const int textLength = int(qstrnlen(piece->constData(), uint(piece->size())));
        return QString::fromUtf8(piece->constData(), textLength).toUpper();
    }
    return QString();
}

QString cpuinfoHardware(const QStringList &cpuinfoLines)
{
    return firstCapture(QStringLiteral("^Hardware\\s+:\\s+(.+)"), cpuinfoLines);
}

uint lscpuCoreCount(const QStringList &lscpuLines)
{
    return firstCapture(QStringLiteral("^CPU\\(s\\):\\s+(\\d+).*"), lscpuLines).toUInt(nullptr, 10);
}

uint lscpuMaxClockMHz(const QStringList &lscpuLines)
{
    // Only the digits before lscpu's decimal point are captured. Without a
    // cpufreq driver (virtual machines) lscpu has no maximum, only the current
    // clock.
    QString mhz = firstCapture(QStringLiteral("CPU max MHz:\\s+(\\d+).*"), lscpuLines);
    if (mhz.isEmpty())
        mhz = firstCapture(QStringLiteral("CPU MHz:\\s+(\\d+).*"), lscpuLines);
    return mhz.toUInt(nullptr, 10);
}

qulonglong memInfoTotalBytes(const QStringList &memInfoLines)
{
    return firstCapture(QStringLiteral("^MemTotal:\\s+(\\d+).*"), memInfoLines).toULongLong(nullptr, 10) * 1024;
}

qulonglong memInfoFreeBytes(const QStringList &memInfoLines)
{
    // MemFree, not MemAvailable: applications are told what is unused now,
    // not what could be reclaimed from caches.
    return firstCapture(QStringLiteral("^MemFree:\\s+(\\d+).*"), memInfoLines).toULongLong(nullptr, 10) * 1024;
}

QString screenResolution(const QStringList &modeLines)
{
    return firstCapture(QStringLiteral("(\\d+x\\d+)"), modeLines);
}

} // namespace ProbeParsers
