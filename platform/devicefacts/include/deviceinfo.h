// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_DEVICEINFO_H
#define PLINTHD_DEVICEINFO_H

#include <QObject>
#include <QString>

// What the device is and which radios it carries, read afresh on every call
// (radios can be hot-plugged, e.g. a USB Bluetooth or WLAN adapter).
//
// prettyName(): the device tree's model (boards name themselves there), else
//   the firmware's DMI sys_vendor and product_name joined by one blank, a part
//   that is missing or blank left out (PCs and virtual machines), else empty.
// hasFeature(): true when the kernel has registered at least one device of the
//   matching class: /sys/class/bluetooth, /sys/class/gnss, /sys/class/ieee80211
//   (WLAN PHYs) or /sys/class/nfc. A driver that is not loaded therefore counts
//   as absent, which is what an application asking the question needs to know.
class DeviceInfo : public QObject
{
    Q_OBJECT

public:
    // Numbered as applications know them; values this class cannot answer are
    // not listed and give false.
    enum Feature {
        FeatureBluetooth = 7,
        FeatureGNSS = 14,
        FeatureWlan = 38,
        FeatureNFC = 39,
    };
    Q_ENUM(Feature)

    explicit DeviceInfo(QObject *parent = nullptr);
    ~DeviceInfo() override;

    QString prettyName() const;
    bool hasFeature(Feature feature) const;
};

#endif // PLINTHD_DEVICEINFO_H
