// SPDX-License-Identifier: BSD-3-Clause
#include "sysinfo.h"

#include "cameramodule.h"
#include "hardwarefacts.h"
#include "osidentityprobe.h"

#include <aboutsettings.h>
#include <accesspolicy.h>
#include <batterystatus.h>
#include <deviceinfo.h>

namespace {

// No file or service gives the system's type code; it is fixed for this OS.
const uint OsTypeCode = 64;

} // namespace

SysInfo::SysInfo(QObject *parent)
    : SysInfo(parent, CameraModule::besideTheProgram())
{
}

SysInfo::SysInfo(QObject *parent, const QString &cameraModulePath)
    : QObject(parent)
{
    // Loading the module takes longest of all the start's work, and the
    // cameras come last: it starts first.
    CameraModule cameraModule(cameraModulePath);
    accessPolicy = new Brisa::AccessPolicy(nullptr);
    waitForPolicyManager = false;

    // The probes are independent of each other: the children and the question
    // to systemd are all under way before anything is waited for, and the
    // package look-up runs meanwhile.
    hardware = std::make_unique<HardwareFacts>();
    OsIdentityProbe identity;
    hardware->collect();
    identity.collect();
    osCertified = identity.isCertified();
    osEmulated = identity.isEmulated();

    batteryStatus = new BatteryStatus(this);
    aboutSettings = new AboutSettings(this);
    deviceFacts = new DeviceInfo(this);

    // Last, once every other fact is known. Measuring is asynchronous: it ends
    // from the event loop, when each camera reports that it has loaded.
    cameras = cameraModule.create([this] { emit cameraEnabledChanged(true); });
    watchPolicyManager();
}

SysInfo::~SysInfo()
{
    delete accessPolicy;
    cameras.reset();
    delete deviceFacts;
    delete aboutSettings;
    delete batteryStatus;
}

uint SysInfo::getNumberCpuCores()
{
    return hardware->numberCpuCores();
}

uint SysInfo::getMaxCpuClockSpeed()
{
    return hardware->maxCpuClockSpeed();
}

QVariantList SysInfo::getMaxCpuCoresClockSpeed()
{
    return hardware->maxCpuCoresClockSpeed();
}

QString SysInfo::getCpuModel()
{
    return hardware->cpuModel();
}

qulonglong SysInfo::getRamTotalSize()
{
    return hardware->ramTotalSize();
}

qulonglong SysInfo::getRamFreeSize()
{
    return hardware->ramFreeSize();
}

QString SysInfo::getScreenResolution()
{
    return hardware->screenResolution();
}

uint SysInfo::getBatteryChargePercentage()
{
    return uint(batteryStatus->chargePercentage());
}

bool SysInfo::hasGNSS()
{
    return deviceFacts->hasFeature(DeviceInfo::FeatureGNSS);
}

bool SysInfo::hasNFC()
{
    return deviceFacts->hasFeature(DeviceInfo::FeatureNFC);
}

bool SysInfo::hasBluetooth()
{
    return deviceFacts->hasFeature(DeviceInfo::FeatureBluetooth);
}

bool SysInfo::hasWlan()
{
    return deviceFacts->hasFeature(DeviceInfo::FeatureWlan);
}

// 0.0 until measured.
double SysInfo::getMainCameraResolution()
{
    const double resolution = cameras->mainResolution();
    return resolution > 0.0 ? resolution : 0.0;
}

double SysInfo::getFrontalCameraResolution()
{
    const double resolution = cameras->frontalResolution();
    return resolution > 0.0 ? resolution : 0.0;
}

QString SysInfo::getOsVersion()
{
    return QStringLiteral("Vireo %1").arg(aboutSettings->softwareVersionId());
}

QString SysInfo::getDeviceModel()
{
    return deviceFacts->prettyName();
}

QString SysInfo::getSerialNumber()
{
    return aboutSettings->serial();
}

uint SysInfo::osType()
{
    return OsTypeCode;
}

bool SysInfo::isOsCertified()
{
    return osCertified;
}

bool SysInfo::isOsEmulated()
{
    return osEmulated;
}
