// SPDX-License-Identifier: BSD-3-Clause
#include "aboutsettings.h"

#include "devicetree.h"
#include "filecontent.h"
#include "osrelease.h"

namespace {

const QString EtcOsRelease = QStringLiteral("/etc/os-release");
const QString VendorOsRelease = QStringLiteral("/usr/lib/os-release");
const QString DeviceTreeSerial = QStringLiteral("/sys/firmware/devicetree/base/serial-number");
const QString DmiSerial = QStringLiteral("/sys/class/dmi/id/product_serial");

} // namespace

AboutSettings::AboutSettings(QObject *parent)
    : QObject(parent)
{
}

AboutSettings::~AboutSettings() = default;

QString AboutSettings::softwareVersionId() const
{
    QByteArray text = FileContent::read(EtcOsRelease);
    if (text.isNull())
        text = FileContent::read(VendorOsRelease);
    return OsRelease::value(text, QByteArrayLiteral("VERSION_ID"));
}

QString AboutSettings::serial() const
{
    const QByteArray fromTree = DeviceTree::firstString(FileContent::read(DeviceTreeSerial));
    if (!fromTree.trimmed().isEmpty())
        return QString::fromUtf8(fromTree);
    return QString::fromUtf8(FileContent::read(DmiSerial).trimmed());
}
