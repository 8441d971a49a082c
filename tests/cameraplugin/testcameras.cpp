// SPDX-License-Identifier: BSD-3-Clause
#include "testcameras.h"

#include <QFile>
#include <QRegularExpression>
#include <QtGlobal>

namespace TestCameras {

static bool parsePosition(const QString &text, QCamera::Position *position)
{
    if (text == QLatin1String("back"))
        *position = QCamera::BackFace;
    else if (text == QLatin1String("front"))
        *position = QCamera::FrontFace;
    else if (text == QLatin1String("unspecified"))
        *position = QCamera::UnspecifiedPosition;
    else
        return false;
    return true;
}

static bool parseResolutions(const QString &text, QList<QSize> *sizes)
{
    static const QRegularExpression sizePattern(QStringLiteral("^(\\d+)x(\\d+)$"));
    const QStringList parts = text.split(QLatin1Char('+'), Qt::SkipEmptyParts);
    for (const QString &part : parts) {
        const QRegularExpressionMatch match = sizePattern.match(part.trimmed());
        if (!match.hasMatch())
            return false;
        sizes->append(QSize(match.captured(1).toInt(), match.captured(2).toInt()));
    }
    return true;
}

QList<TestCamera> parse(const QString &text)
{
    QList<TestCamera> cameras;
    const QStringList entries = text.split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString &rawEntry : entries) {
        const QString entry = rawEntry.trimmed();
        const int colon = entry.indexOf(QLatin1Char(':'));
        TestCamera camera;
        if (colon < 0 || !parsePosition(entry.left(colon), &camera.position)
            || !parseResolutions(entry.mid(colon + 1), &camera.stillResolutions)) {
            qWarning("test cameras: ignoring malformed entry \"%s\"", qPrintable(entry));
            continue;
        }
        camera.deviceName = entry.left(colon).toLatin1() + '-' + QByteArray::number(cameras.size());
        cameras.append(camera);
    }
    return cameras;
}

QList<TestCamera> fromEnvironment()
{
    return parse(qEnvironmentVariable("PLINTHD_TEST_CAMERAS"));
}

int settleDelay()
{
    return qMax(1, qEnvironmentVariableIntValue("PLINTHD_TEST_CAMERA_DELAY_MS"));
}

void logEvent(const QString &event, const QByteArray &deviceName)
{
    const QString path = qEnvironmentVariable("PLINTHD_TEST_CAMERA_LOG");
    if (path.isEmpty())
        return;
    QFile log(path);
    if (log.open(QIODevice::WriteOnly | QIODevice::Append))
        log.write(event.toUtf8() + ' ' + deviceName + '\n');
}

} // namespace TestCameras
