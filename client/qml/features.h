// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHQML_FEATURES_H
#define PLINTHQML_FEATURES_H

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

class QDBusMessage;

namespace Plinth {
class Features;
}

namespace PlinthQml {

class DaemonLink;

// Features (a singleton): every answer of the daemon's Features object as a
// read-only property, named after the method without its "get"
// (getCpuModel: cpuModel; hasNFC stays hasNFC) and, for the D-Bus
// properties, without "is" (isOsCertified: osCertified). Loaded once,
// asynchronously, when QML first uses the singleton, and again when the
// daemon comes back; until an answer is in, a property holds its neutral
// value (false, 0, an empty text or list). The camera resolutions are asked
// again whenever the daemon says the cameras changed; refresh() asks
// everything again (the battery, the free memory, the locale and the time
// zone are read anew by the daemon on every call). Every property notifies
// its change.
class Features : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool available READ isAvailable NOTIFY availableChanged)
    Q_PROPERTY(bool busy READ isBusy NOTIFY busyChanged)

    Q_PROPERTY(bool hasGNSS READ hasGNSS NOTIFY hasGNSSChanged)
    Q_PROPERTY(bool hasNFC READ hasNFC NOTIFY hasNFCChanged)
    Q_PROPERTY(bool hasBluetooth READ hasBluetooth NOTIFY hasBluetoothChanged)
    Q_PROPERTY(bool hasWlan READ hasWlan NOTIFY hasWlanChanged)
    // MHz; 0 when not known.
    Q_PROPERTY(uint maxCpuClockSpeed READ maxCpuClockSpeed NOTIFY maxCpuClockSpeedChanged)
    Q_PROPERTY(uint numberCpuCores READ numberCpuCores NOTIFY numberCpuCoresChanged)
    Q_PROPERTY(QString cpuModel READ cpuModel NOTIFY cpuModelChanged)
    // One number per core, MHz.
    Q_PROPERTY(QVariantList maxCpuCoresClockSpeed READ maxCpuCoresClockSpeed NOTIFY maxCpuCoresClockSpeedChanged)
    // Percent; 0 also when there is no battery.
    Q_PROPERTY(uint batteryChargePercentage READ batteryChargePercentage NOTIFY batteryChargePercentageChanged)
    // Megapixels; 0 until measured and when there is no such camera.
    Q_PROPERTY(double mainCameraResolution READ mainCameraResolution NOTIFY mainCameraResolutionChanged)
    Q_PROPERTY(double frontalCameraResolution READ frontalCameraResolution NOTIFY frontalCameraResolutionChanged)
    // Bytes (exact up to 2^53 as QML numbers).
    Q_PROPERTY(quint64 ramTotalSize READ ramTotalSize NOTIFY ramTotalSizeChanged)
    Q_PROPERTY(quint64 ramFreeSize READ ramFreeSize NOTIFY ramFreeSizeChanged)
    // "WIDTHxHEIGHT".
    Q_PROPERTY(QString screenResolution READ screenResolution NOTIFY screenResolutionChanged)
    Q_PROPERTY(QString osVersion READ osVersion NOTIFY osVersionChanged)
    Q_PROPERTY(QString deviceModel READ deviceModel NOTIFY deviceModelChanged)
    Q_PROPERTY(QString serialNumber READ serialNumber NOTIFY serialNumberChanged)
    Q_PROPERTY(QString locale READ locale NOTIFY localeChanged)
    Q_PROPERTY(QStringList locales READ locales NOTIFY localesChanged)
    Q_PROPERTY(QString timeZone READ timeZone NOTIFY timeZoneChanged)
    Q_PROPERTY(QStringList fontNames READ fontNames NOTIFY fontNamesChanged)
    Q_PROPERTY(QStringList fontFamilyNames READ fontFamilyNames NOTIFY fontFamilyNamesChanged)
    Q_PROPERTY(uint osType READ osType NOTIFY osTypeChanged)
    Q_PROPERTY(bool osCertified READ osCertified NOTIFY osCertifiedChanged)
    Q_PROPERTY(bool osEmulated READ osEmulated NOTIFY osEmulatedChanged)

public:
    explicit Features(QObject *parent = nullptr);
    ~Features() override;

    bool isAvailable() const;
    bool isBusy() const;

    bool hasGNSS() const { return flag("hasGNSS"); }
    bool hasNFC() const { return flag("hasNFC"); }
    bool hasBluetooth() const { return flag("hasBluetooth"); }
    bool hasWlan() const { return flag("hasWlan"); }
    uint maxCpuClockSpeed() const { return count("maxCpuClockSpeed"); }
    uint numberCpuCores() const { return count("numberCpuCores"); }
    QString cpuModel() const { return text("cpuModel"); }
    QVariantList maxCpuCoresClockSpeed() const { return value("maxCpuCoresClockSpeed").toList(); }
    uint batteryChargePercentage() const { return count("batteryChargePercentage"); }
    double mainCameraResolution() const { return value("mainCameraResolution").toDouble(); }
    double frontalCameraResolution() const { return value("frontalCameraResolution").toDouble(); }
    quint64 ramTotalSize() const { return value("ramTotalSize").toULongLong(); }
    quint64 ramFreeSize() const { return value("ramFreeSize").toULongLong(); }
    QString screenResolution() const { return text("screenResolution"); }
    QString osVersion() const { return text("osVersion"); }
    QString deviceModel() const { return text("deviceModel"); }
    QString serialNumber() const { return text("serialNumber"); }
    QString locale() const { return text("locale"); }
    QStringList locales() const { return value("locales").toStringList(); }
    QString timeZone() const { return text("timeZone"); }
    QStringList fontNames() const { return value("fontNames").toStringList(); }
    QStringList fontFamilyNames() const { return value("fontFamilyNames").toStringList(); }
    uint osType() const { return count("osType"); }
    bool osCertified() const { return flag("osCertified"); }
    bool osEmulated() const { return flag("osEmulated"); }

    // Asks every value again.
    Q_INVOKABLE void refresh();

signals:
    void availableChanged();
    void busyChanged();
    void hasGNSSChanged();
    void hasNFCChanged();
    void hasBluetoothChanged();
    void hasWlanChanged();
    void maxCpuClockSpeedChanged();
    void numberCpuCoresChanged();
    void cpuModelChanged();
    void maxCpuCoresClockSpeedChanged();
    void batteryChargePercentageChanged();
    void mainCameraResolutionChanged();
    void frontalCameraResolutionChanged();
    void ramTotalSizeChanged();
    void ramFreeSizeChanged();
    void screenResolutionChanged();
    void osVersionChanged();
    void deviceModelChanged();
    void serialNumberChanged();
    void localeChanged();
    void localesChanged();
    void timeZoneChanged();
    void fontNamesChanged();
    void fontFamilyNamesChanged();
    void osTypeChanged();
    void osCertifiedChanged();
    void osEmulatedChanged();

private:
    QVariant value(const char *property) const { return m_values.value(QLatin1String(property)); }
    bool flag(const char *property) const { return value(property).toBool(); }
    uint count(const char *property) const { return value(property).toUInt(); }
    QString text(const char *property) const { return value(property).toString(); }

    void askCameras();
    // Asks the methods of `methods` (indexes into the table of sources).
    void ask(const QVector<int> &methods);
    void set(const QString &property, const QVariant &value);

    Plinth::Features *m_features;
    DaemonLink *m_link;
    QVariantMap m_values;
};

} // namespace PlinthQml

#endif // PLINTHQML_FEATURES_H
