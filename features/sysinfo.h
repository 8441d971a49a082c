// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SYSINFO_H
#define PLINTHD_SYSINFO_H

#include <QCamera>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>

class AboutSettings;
class BatteryStatus;
class DeviceInfo;
class QCameraInfo;
namespace Brisa {
class AccessPolicy;
}

// Hardware and OS facts of the device. Everything that cannot change while the
// system runs is probed once, synchronously, in the constructor (child
// processes, kernel files, the package database, systemd) and answered from
// memory; free memory, the battery, the radios and the identity strings are
// read on every call.
class SysInfo : public QObject
{
    Q_OBJECT

public:
    explicit SysInfo(QObject *parent);
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
    void cameraInitFinished();

private slots:
    void mainCameraStatusChanged(QCamera::Status status);
    void frontalCameraStatusChanged(QCamera::Status status);
    void cameraAccessChanged();

private:
    // Cameras (sysinfocameras.cpp).
    void watchPolicyManager();
    void initCameras();
    void replaceCamera(QCamera **camera, const QCameraInfo &info, QCamera::Position position,
                       void (SysInfo::*statusSlot)(QCamera::Status));
    void measureCamera(QCamera *camera, QCamera::Status status, double *resolution, const QString &fileKey);

    void probeProcessor();
    void probeCertification();
    void probeVirtualization();
    void readMemInfo();
    void readScreenModes();

    QStringList lscpuLines;
    QStringList memInfoLines;
    QStringList screenModeLines;
    QVariantList maxCoresClockSpeed;
    QString cpuModel;
    bool osCertified = false;
    bool osEmulated = false;
    // Megapixels, 0.0 until the camera code has measured them.
    double mainCameraResolution = 0.0;
    double frontalCameraResolution = 0.0;
    BatteryStatus *batteryStatus = nullptr;
    AboutSettings *aboutSettings = nullptr;
    DeviceInfo *deviceFacts = nullptr;
    // The cameras being measured, made anew on every measuring round; empty
    // when the device has no camera on that side.
    QCamera *mainCamera = nullptr;
    QCamera *frontalCamera = nullptr;
    // Created first in the constructor, without a parent; deleted first.
    Brisa::AccessPolicy *accessPolicy = nullptr;
    // The policy manager was not on the bus at start-up: each time it appears,
    // policy changes get one more connection.
    bool waitForPolicyManager = false;
};

#endif // PLINTHD_SYSINFO_H
