// SPDX-License-Identifier: BSD-3-Clause
#include "batterystatus.h"

#include "filecontent.h"

#include <QDir>
#include <QStringList>

namespace {

const QString PowerSupplyClass = QStringLiteral("/sys/class/power_supply");

} // namespace

BatteryStatus::BatteryStatus(QObject *parent)
    : QObject(parent)
{
}

BatteryStatus::~BatteryStatus() = default;

int BatteryStatus::chargePercentage() const
{
    const QDir supplies(PowerSupplyClass);
    const QStringList names = supplies.entryList(QDir::AllEntries | QDir::System | QDir::Hidden
                                                     | QDir::NoDotAndDotDot,
                                                 QDir::Name);
    for (const QString &name : names) {
        const QString entry = supplies.filePath(name);
        if (FileContent::read(entry + QStringLiteral("/type")).trimmed() != "Battery")
            continue;
        const QByteArray capacity = FileContent::read(entry + QStringLiteral("/capacity"));
        if (capacity.isNull())
            continue;
        bool ok = false;
        const int percent = capacity.trimmed().toInt(&ok);
        return ok && percent >= 0 && percent <= 100 ? percent : 0;
    }
    return 0;
}
