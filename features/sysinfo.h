// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SYSINFO_H
#define PLINTHD_SYSINFO_H

#include <QObject>
#include <QString>
#include <QVariantList>

#include <memory>

class AboutSettings;
class BatteryStatus;
class CameraResolutions;
class DeviceInfo;
class HardwareFacts;
namespace Brisa {
class AccessPolicy;
}

// Hardware and OS facts of the device, as FeaturesService asks for them. The
// work is done by one class a job: HardwareFacts (lscpu, /proc, /sys),
// OsIdentityProbe (the package database, systemd), CameraResolutions (from
// the camera module, CameraModule), and the platform's settings objects
// (battery, radios, device model, version).
//
// Everything that cannot change while the system runs is probed once, in the
// constructor, with the probes' child processes and their bus question all
// under way at once; the constructor returns when every answer is in. Free
// memory, the battery, the radios and the identity strings are read on every
// call.
class SysInfo : public QObject
{
    Q_OBJECT

public:
    // The cameras are measured by the camera module installed beside the
    // program, or by the one at CAMERAMODULEPATH.
    explicit SysInfo(QObject *parent);
    SysInfo(QObject *parent, const QString &cameraModulePath);
    ~SysInfo() override;

    uint getNumberCpuCores();
    uint getMaxCpuClockSpeed();
    QVariantList getMaxCpuCoresClockSpeed();
    QString getCpuModel();
    qulonglong getRamTotalSize();
    qulonglong getRamFreeSize();

    QString getScreenResolution();
    uint getBatteryChargePercentage();
    bool hasGNSS();
    bool hasNFC();
    bool hasBluetooth();
    bool hasWlan();

    double getMainCameraResolution();
    double getFrontalCameraResolution();

    QString getOsVersion();
    QString getDeviceModel();
    QString getSerialNumber();
    uint osType();
    bool isOsCertified();
    bool isOsEmulated();

signals:
    void cameraEnabledChanged(bool enabled);

private slots:
    void cameraAccessChanged();

private:
    // The camera access policy (sysinfocameras.cpp).
    void watchPolicyManager();
    void followCameraAccessPolicy();

    std::unique_ptr<HardwareFacts> hardware;
    bool osCertified = false;
    bool osEmulated = false;
    BatteryStatus *batteryStatus = nullptr;
    AboutSettings *aboutSettings = nullptr;
    DeviceInfo *deviceFacts = nullptr;
    std::unique_ptr<CameraResolutions> cameras;
    // Created first in the constructor, without a parent; deleted first.
    Brisa::AccessPolicy *accessPolicy = nullptr;
    // The policy manager was not on the bus at start-up: each time it appears,
    // policy changes get one more connection.
    bool waitForPolicyManager = false;
};

#endif // PLINTHD_SYSINFO_H
