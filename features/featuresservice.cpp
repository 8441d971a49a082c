// SPDX-License-Identifier: LicenseRef-plinthd
#include "featuresservice.h"

#include "featuresadaptor.h"
#include "fontinfo.h"
#include "localeinfo.h"
#include "sysinfo.h"

#include <QDateTime>
#include <QDebug>
#include <QLocale>
#include <QTimeZone>

static const QString ServiceName = QStringLiteral("org.norvu.plinth");
static const QString ObjectPath = QStringLiteral("/org/norvu/plinth/Features");

FeaturesService::FeaturesService(QObject *parent)
    : BasicService(ServiceName, ObjectPath, parent)
{
    // Probes everything that does not change while the system runs, before the
    // object can be called.
    sysInfo = new SysInfo(this);
    localeInfo = new LocaleInfo();
    fontInfo = new FontInfo();
    setAdaptor(new FeaturesAdaptor(this));
    if (!adaptor())
        qCritical() << "FeaturesAdaptor is not created";
    connect(sysInfo, &SysInfo::cameraEnabledChanged, this, &FeaturesService::cameraEnabledChanged);
}

FeaturesService::~FeaturesService()
{
    delete fontInfo;
    fontInfo = nullptr;
    delete localeInfo;
    localeInfo = nullptr;
    delete sysInfo;
    sysInfo = nullptr;
}

uint FeaturesService::osType() const { return sysInfo ? sysInfo->osType() : 0; }
bool FeaturesService::isOsCertified() const { return sysInfo ? sysInfo->isOsCertified() : false; }
bool FeaturesService::isOsEmulated() const { return sysInfo ? sysInfo->isOsEmulated() : false; }

bool FeaturesService::hasGNSS() { return sysInfo ? sysInfo->hasGNSS() : false; }
bool FeaturesService::hasNFC() { return sysInfo ? sysInfo->hasNFC() : false; }
bool FeaturesService::hasBluetooth() { return sysInfo ? sysInfo->hasBluetooth() : false; }
bool FeaturesService::hasWlan() { return sysInfo ? sysInfo->hasWlan() : false; }
uint FeaturesService::getMaxCpuClockSpeed() { return sysInfo ? sysInfo->getMaxCpuClockSpeed() : 0; }
uint FeaturesService::getNumberCpuCores() { return sysInfo ? sysInfo->getNumberCpuCores() : 0; }
QString FeaturesService::getCpuModel() { return sysInfo ? sysInfo->getCpuModel() : QString(); }
QVariantList FeaturesService::getMaxCpuCoresClockSpeed() { return sysInfo ? sysInfo->getMaxCpuCoresClockSpeed() : QVariantList(); }
uint FeaturesService::getBatteryChargePercentage() { return sysInfo ? sysInfo->getBatteryChargePercentage() : 0; }
qulonglong FeaturesService::getRamTotalSize() { return sysInfo ? sysInfo->getRamTotalSize() : 0; }
qulonglong FeaturesService::getRamFreeSize() { return sysInfo ? sysInfo->getRamFreeSize() : 0; }
QString FeaturesService::getScreenResolution() { return sysInfo ? sysInfo->getScreenResolution() : QString(); }
QString FeaturesService::getOsVersion() { return sysInfo ? sysInfo->getOsVersion() : QString(); }
QString FeaturesService::getDeviceModel() { return sysInfo ? sysInfo->getDeviceModel() : QString(); }
QString FeaturesService::getSerialNumber() { return sysInfo ? sysInfo->getSerialNumber() : QString(); }
QString FeaturesService::getLocale() { return localeInfo ? localeInfo->getLocale() : QString(); }
QStringList FeaturesService::getLocales() { return localeInfo ? localeInfo->getLocales() : QStringList(); }
QStringList FeaturesService::getFontNames() { return fontInfo ? fontInfo->getFontNames() : QStringList(); }
QStringList FeaturesService::getFontFamilyNames() { return fontInfo ? fontInfo->getFontFamilyNames() : QStringList(); }

// A resolution that has not been measured yet is answered as 0.0.
double FeaturesService::getMainCameraResolution()
{
    if (!sysInfo)
        return 0.0;
    const double resolution = sysInfo->getMainCameraResolution();
    return resolution > 0.0 ? resolution : 0.0;
}

double FeaturesService::getFrontalCameraResolution()
{
    if (!sysInfo)
        return 0.0;
    const double resolution = sysInfo->getFrontalCameraResolution();
    return resolution > 0.0 ? resolution : 0.0;
}

// Asked on every call: the system time zone may change while the daemon runs.
QString FeaturesService::getTimeZone()
{
    return QTimeZone::systemTimeZone().displayName(QDateTime::currentDateTime(), QTimeZone::ShortName, QLocale());
}
