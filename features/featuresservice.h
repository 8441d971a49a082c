// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_FEATURESSERVICE_H
#define PLINTHD_FEATURESSERVICE_H

#include "basicservice.h"

#include <QDBusContext>
#include <QStringList>
#include <QVariantList>

class SysInfo;
class LocaleInfo;
class FontInfo;

// "/org/norvu/plinth/Features": hardware and OS facts, locale and fonts.
//
// Everything is answered in the dispatch from what the providers hold, except
// the locale, which needs the user manager: getLocale takes the reply over
// and sends it when the peer has answered, so a stalled peer holds up only
// the callers of getLocale.
class FeaturesService : public BasicService, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.Features")
    Q_PROPERTY(uint osType READ osType)
    Q_PROPERTY(bool isOsCertified READ isOsCertified)
    Q_PROPERTY(bool isOsEmulated READ isOsEmulated)

public:
    explicit FeaturesService(QObject *parent);
    ~FeaturesService() override;

    uint osType() const;
    bool isOsCertified() const;
    bool isOsEmulated() const;

signals:
    void cameraEnabledChanged(bool enabled);

public slots:
    bool hasGNSS();
    bool hasNFC();
    bool hasBluetooth();
    bool hasWlan();
    uint getMaxCpuClockSpeed();
    uint getNumberCpuCores();
    QString getCpuModel();
    QVariantList getMaxCpuCoresClockSpeed();
    uint getBatteryChargePercentage();
    double getMainCameraResolution();
    double getFrontalCameraResolution();
    qulonglong getRamTotalSize();
    qulonglong getRamFreeSize();
    QString getScreenResolution();
    QString getOsVersion();
    QString getDeviceModel();
    QString getSerialNumber();
    QString getLocale();
    QStringList getLocales();
    QString getTimeZone();
    QStringList getFontNames();
    QStringList getFontFamilyNames();

private:
    // Also a QObject child, but deleted explicitly so that it goes before the
    // base class gives up the bus registration.
    SysInfo *sysInfo = nullptr;
    // Neither has a parent: the destructor deletes them in a fixed order.
    LocaleInfo *localeInfo = nullptr;
    FontInfo *fontInfo = nullptr;
};

#endif // PLINTHD_FEATURESSERVICE_H
