// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/features.h>

#include <QDBusMessage>

namespace Plinth {

Features::Features(const QDBusConnection &bus, QObject *parent)
    : DaemonObject(bus, featuresPath(), featuresInterface(), parent)
{
}

Features::~Features() = default;

QDBusPendingReply<bool> Features::hasGNSS() const
{
    return call(QStringLiteral("hasGNSS"));
}

QDBusPendingReply<bool> Features::hasNFC() const
{
    return call(QStringLiteral("hasNFC"));
}

QDBusPendingReply<bool> Features::hasBluetooth() const
{
    return call(QStringLiteral("hasBluetooth"));
}

QDBusPendingReply<bool> Features::hasWlan() const
{
    return call(QStringLiteral("hasWlan"));
}

QDBusPendingReply<uint> Features::getMaxCpuClockSpeed() const
{
    return call(QStringLiteral("getMaxCpuClockSpeed"));
}

QDBusPendingReply<uint> Features::getNumberCpuCores() const
{
    return call(QStringLiteral("getNumberCpuCores"));
}

QDBusPendingReply<QString> Features::getCpuModel() const
{
    return call(QStringLiteral("getCpuModel"));
}

QDBusPendingReply<QVariantList> Features::getMaxCpuCoresClockSpeed() const
{
    return call(QStringLiteral("getMaxCpuCoresClockSpeed"));
}

QDBusPendingReply<uint> Features::getBatteryChargePercentage() const
{
    return call(QStringLiteral("getBatteryChargePercentage"));
}

QDBusPendingReply<double> Features::getMainCameraResolution() const
{
    return call(QStringLiteral("getMainCameraResolution"));
}

QDBusPendingReply<double> Features::getFrontalCameraResolution() const
{
    return call(QStringLiteral("getFrontalCameraResolution"));
}

QDBusPendingReply<qulonglong> Features::getRamTotalSize() const
{
    return call(QStringLiteral("getRamTotalSize"));
}

QDBusPendingReply<qulonglong> Features::getRamFreeSize() const
{
    return call(QStringLiteral("getRamFreeSize"));
}

QDBusPendingReply<QString> Features::getScreenResolution() const
{
    return call(QStringLiteral("getScreenResolution"));
}

QDBusPendingReply<QString> Features::getOsVersion() const
{
    return call(QStringLiteral("getOsVersion"));
}

QDBusPendingReply<QString> Features::getDeviceModel() const
{
    return call(QStringLiteral("getDeviceModel"));
}

QDBusPendingReply<QString> Features::getSerialNumber() const
{
    return call(QStringLiteral("getSerialNumber"));
}

QDBusPendingReply<QString> Features::getLocale() const
{
    return call(QStringLiteral("getLocale"));
}

QDBusPendingReply<QStringList> Features::getLocales() const
{
    return call(QStringLiteral("getLocales"));
}

QDBusPendingReply<QString> Features::getTimeZone() const
{
    return call(QStringLiteral("getTimeZone"));
}

QDBusPendingReply<QStringList> Features::getFontNames() const
{
    return call(QStringLiteral("getFontNames"));
}

QDBusPendingReply<QStringList> Features::getFontFamilyNames() const
{
    return call(QStringLiteral("getFontFamilyNames"));
}

QDBusPendingReply<QVariantMap> Features::getProperties() const
{
    QDBusMessage message = QDBusMessage::createMethodCall(serviceName(), path(),
                                                          QStringLiteral("org.freedesktop.DBus.Properties"),
                                                          QStringLiteral("GetAll"));
    message << interface();
    return connection().asyncCall(message);
}

void Features::relay(const QDBusMessage &message)
{
    if (message.member() == QLatin1String("cameraEnabledChanged"))
        emit cameraEnabledChanged(message.arguments().value(0).toBool());
}

} // namespace Plinth
