// SPDX-License-Identifier: BSD-3-Clause
#include "featuresservice.h"

#include "delayedreply.h"
#include "featuresadaptor.h"
#include "fontinfo.h"
#include "localeinfo.h"
#include "sysinfo.h"

#include <QDateTime>
#include <QLocale>
#include <QTimeZone>

#include <utility>

static const QString ServiceName = QStringLiteral("org.norvu.plinth");
static const QString ObjectPath = QStringLiteral("/org/norvu/plinth/Features");

FeaturesService::FeaturesService(QObject *parent)
    : BasicService(ServiceName, ObjectPath, parent)
{
    // Fontconfig starts on a thread of its own while SysInfo probes, which
    // waits mostly for its children and the bus.
    FontconfigStart fontconfig;
    // Probes everything that does not change while the system runs, before the
    // object can be called.
    sysInfo = new SysInfo(this);
    localeInfo = new LocaleInfo();
    fontInfo = new FontInfo(std::move(fontconfig));
    setAdaptor(new FeaturesAdaptor(this));
    connect(sysInfo, &SysInfo::cameraEnabledChanged, this, &FeaturesService::cameraEnabledChanged);
}

FeaturesService::~FeaturesService()
{
    delete fontInfo;
    delete localeInfo;
    delete sysInfo;
}

uint FeaturesService::osType() const { return sysInfo->osType(); }
bool FeaturesService::isOsCertified() const { return sysInfo->isOsCertified(); }
bool FeaturesService::isOsEmulated() const { return sysInfo->isOsEmulated(); }

bool FeaturesService::hasGNSS() { return sysInfo->hasGNSS(); }
bool FeaturesService::hasNFC() { return sysInfo->hasNFC(); }
bool FeaturesService::hasBluetooth() { return sysInfo->hasBluetooth(); }
bool FeaturesService::hasWlan() { return sysInfo->hasWlan(); }
uint FeaturesService::getMaxCpuClockSpeed() { return sysInfo->getMaxCpuClockSpeed(); }
uint FeaturesService::getNumberCpuCores() { return sysInfo->getNumberCpuCores(); }
QString FeaturesService::getCpuModel() { return sysInfo->getCpuModel(); }
QVariantList FeaturesService::getMaxCpuCoresClockSpeed() { return sysInfo->getMaxCpuCoresClockSpeed(); }
uint FeaturesService::getBatteryChargePercentage() { return sysInfo->getBatteryChargePercentage(); }
qulonglong FeaturesService::getRamTotalSize() { return sysInfo->getRamTotalSize(); }
qulonglong FeaturesService::getRamFreeSize() { return sysInfo->getRamFreeSize(); }
QString FeaturesService::getScreenResolution() { return sysInfo->getScreenResolution(); }
QString FeaturesService::getOsVersion() { return sysInfo->getOsVersion(); }
QString FeaturesService::getDeviceModel() { return sysInfo->getDeviceModel(); }
QString FeaturesService::getSerialNumber() { return sysInfo->getSerialNumber(); }
QStringList FeaturesService::getLocales() { return localeInfo->getLocales(); }
QStringList FeaturesService::getFontNames() { return fontInfo->getFontNames(); }
QStringList FeaturesService::getFontFamilyNames() { return fontInfo->getFontFamilyNames(); }

// Answered once the user manager has told the user and the locale. An
// in-process call has nobody to send a late answer to: it gets an empty string
// and asks nothing.
QString FeaturesService::getLocale()
{
    if (!calledFromDBus())
        return QString();
    const DelayedReply reply(*this);
    localeInfo->getLocale([reply](const QString &locale) { reply.send(locale); });
    return QString();
}

// The provider answers a resolution that has not been measured yet as 0.0.
double FeaturesService::getMainCameraResolution() { return sysInfo->getMainCameraResolution(); }
double FeaturesService::getFrontalCameraResolution() { return sysInfo->getFrontalCameraResolution(); }

// Asked on every call: the system time zone may change while the daemon runs.
QString FeaturesService::getTimeZone()
{
    return QTimeZone::systemTimeZone().displayName(QDateTime::currentDateTime(), QTimeZone::ShortName, QLocale());
}
