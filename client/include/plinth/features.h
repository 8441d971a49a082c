// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTH_FEATURES_H
#define PLINTH_FEATURES_H

#include <plinth/daemonobject.h>

#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

namespace Plinth {

// The object /org/norvu/plinth/Features: hardware, OS identity, locale, time
// zone and fonts. Each method is the daemon's method of the same name. A
// source the daemon cannot read gives its neutral answer (false, 0, 0.0, an
// empty text or list), never an error; the errors a reply can carry come
// from the bus (no daemon, a time-out).
class PLINTH_QT5_EXPORT Features : public DaemonObject
{
    Q_OBJECT

public:
    explicit Features(const QDBusConnection &bus = QDBusConnection::systemBus(), QObject *parent = nullptr);
    ~Features() override;

    QDBusPendingReply<bool> hasGNSS() const;
    QDBusPendingReply<bool> hasNFC() const;
    QDBusPendingReply<bool> hasBluetooth() const;
    QDBusPendingReply<bool> hasWlan() const;
    // MHz; 0 when not known.
    QDBusPendingReply<uint> getMaxCpuClockSpeed() const;
    QDBusPendingReply<uint> getNumberCpuCores() const;
    QDBusPendingReply<QString> getCpuModel() const;
    // One variant per core, each holding a uint in MHz ("av").
    QDBusPendingReply<QVariantList> getMaxCpuCoresClockSpeed() const;
    // Percent; 0 also when there is no battery.
    QDBusPendingReply<uint> getBatteryChargePercentage() const;
    // Megapixels; 0.0 until measured and when there is no such camera.
    QDBusPendingReply<double> getMainCameraResolution() const;
    QDBusPendingReply<double> getFrontalCameraResolution() const;
    // Bytes.
    QDBusPendingReply<qulonglong> getRamTotalSize() const;
    QDBusPendingReply<qulonglong> getRamFreeSize() const;
    // "WIDTHxHEIGHT".
    QDBusPendingReply<QString> getScreenResolution() const;
    QDBusPendingReply<QString> getOsVersion() const;
    QDBusPendingReply<QString> getDeviceModel() const;
    QDBusPendingReply<QString> getSerialNumber() const;
    QDBusPendingReply<QString> getLocale() const;
    QDBusPendingReply<QStringList> getLocales() const;
    QDBusPendingReply<QString> getTimeZone() const;
    QDBusPendingReply<QStringList> getFontNames() const;
    QDBusPendingReply<QStringList> getFontFamilyNames() const;

    // The read-only properties osType (uint), isOsCertified and isOsEmulated
    // (bool), by name.
    QDBusPendingReply<QVariantMap> getProperties() const;

signals:
    // What the daemon knows of the cameras may have changed: ask for the
    // resolutions again.
    void cameraEnabledChanged(bool enabled);

protected:
    void relay(const QDBusMessage &message) override;
};

} // namespace Plinth

#endif // PLINTH_FEATURES_H
