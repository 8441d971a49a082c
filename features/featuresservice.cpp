#include "featuresservice.h"

#include "featuresadaptor.h"
#include "fontinfo.h"
#include "localeinfo.h"

#include <QDateTime>
#include <QDebug>
#include <QLocale>
#include <QTimeZone>

static const QString ServiceName = QStringLiteral("org.norvu.plinth");
static const QString ObjectPath = QStringLiteral("/org/norvu/plinth/Features");

// The provider of hardware facts is not part of this build yet; until it is,
// every hardware fact answers the neutral value of its type.
FeaturesService::FeaturesService(QObject *parent)
    : BasicService(ServiceName, ObjectPath, parent)
{
    localeInfo = new LocaleInfo();
    fontInfo = new FontInfo();
    setAdaptor(new FeaturesAdaptor(this));
    if (!adaptor())
        qCritical() << "FeaturesAdaptor is not created";
}

FeaturesService::~FeaturesService()
{
    delete fontInfo;
    fontInfo = nullptr;
    delete localeInfo;
    localeInfo = nullptr;
}

uint FeaturesService::osType() const { return 0; }
bool FeaturesService::isOsCertified() const { return false; }
bool FeaturesService::isOsEmulated() const { return false; }

bool FeaturesService::hasGNSS() { return false; }
bool FeaturesService::hasNFC() { return false; }
bool FeaturesService::hasBluetooth() { return false; }
bool FeaturesService::hasWlan() { return false; }
uint FeaturesService::getMaxCpuClockSpeed() { return 0; }
uint FeaturesService::getNumberCpuCores() { return 0; }
QString FeaturesService::getCpuModel() { return QString(); }
QVariantList FeaturesService::getMaxCpuCoresClockSpeed() { return QVariantList(); }
uint FeaturesService::getBatteryChargePercentage() { return 0; }
double FeaturesService::getMainCameraResolution() { return 0.0; }
double FeaturesService::getFrontalCameraResolution() { return 0.0; }
qulonglong FeaturesService::getRamTotalSize() { return 0; }
qulonglong FeaturesService::getRamFreeSize() { return 0; }
QString FeaturesService::getScreenResolution() { return QString(); }
QString FeaturesService::getOsVersion() { return QString(); }
QString FeaturesService::getDeviceModel() { return QString(); }
QString FeaturesService::getSerialNumber() { return QString(); }
QString FeaturesService::getLocale() { return localeInfo ? localeInfo->getLocale() : QString(); }
QStringList FeaturesService::getLocales() { return localeInfo ? localeInfo->getLocales() : QStringList(); }
QStringList FeaturesService::getFontNames() { return fontInfo ? fontInfo->getFontNames() : QStringList(); }
QStringList FeaturesService::getFontFamilyNames() { return fontInfo ? fontInfo->getFontFamilyNames() : QStringList(); }

// Asked on every call: the system time zone may change while the daemon runs.
QString FeaturesService::getTimeZone()
{
    return QTimeZone::systemTimeZone().displayName(QDateTime::currentDateTime(), QTimeZone::ShortName, QLocale());
}
