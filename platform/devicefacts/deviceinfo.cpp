// SPDX-License-Identifier: BSD-3-Clause
#include "deviceinfo.h"

#include "devicetree.h"
#include "filecontent.h"

#include <QDir>
#include <QStringList>

namespace {

const QString DeviceTreeModel = QStringLiteral("/sys/firmware/devicetree/base/model");
const QString DmiVendor = QStringLiteral("/sys/class/dmi/id/sys_vendor");
const QString DmiProduct = QStringLiteral("/sys/class/dmi/id/product_name");

QString deviceClassDirectory(DeviceInfo::Feature feature)
{
    switch (feature) {
    case DeviceInfo::FeatureBluetooth:
        return QStringLiteral("/sys/class/bluetooth");
    case DeviceInfo::FeatureGNSS:
        return QStringLiteral("/sys/class/gnss");
    case DeviceInfo::FeatureWlan:
        return QStringLiteral("/sys/class/ieee80211");
    case DeviceInfo::FeatureNFC:
        return QStringLiteral("/sys/class/nfc");
    }
    return QString();
}

} // namespace

DeviceInfo::DeviceInfo(QObject *parent)
    : QObject(parent)
{
}

DeviceInfo::~DeviceInfo() = default;

QString DeviceInfo::prettyName() const
{
    const QByteArray model = DeviceTree::firstString(FileContent::read(DeviceTreeModel));
    if (!model.trimmed().isEmpty())
        return QString::fromUtf8(model);

    QStringList parts;
    for (const QString &path : {DmiVendor, DmiProduct}) {
        const QByteArray part = FileContent::read(path).trimmed();
        if (!part.isEmpty())
            parts.append(QString::fromUtf8(part));
    }
    return parts.join(QLatin1Char(' '));
}

bool DeviceInfo::hasFeature(Feature feature) const
{
    const QString directory = deviceClassDirectory(feature);
    if (directory.isEmpty())
        return false;
    // Class entries are symbolic links into /sys/devices; System also lists
    // links whose target is gone, which still name a registered device.
    return !QDir(directory).entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                                      QDir::Unsorted).isEmpty();
}
