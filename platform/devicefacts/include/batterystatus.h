// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_BATTERYSTATUS_H
#define PLINTHD_BATTERYSTATUS_H

#include <QObject>

// The charge of the device's battery, read afresh on every call.
//
// chargePercentage(): the kernel's capacity (percent) of the first entry of
//   /sys/class/power_supply, in name order, whose type is Battery and which has
//   a capacity file. Name order makes the answer stable when a device has
//   several (BAT0 before BAT1); mains adapters, USB ports and the batteries of
//   connected peripherals (their type is not Battery or they lack a capacity)
//   are skipped. No such entry, or a capacity that is not a percentage, gives
//   0: the device has no battery we can read.
class BatteryStatus : public QObject
{
    Q_OBJECT

public:
    explicit BatteryStatus(QObject *parent = nullptr);
    ~BatteryStatus() override;

    int chargePercentage() const;
};

#endif // PLINTHD_BATTERYSTATUS_H
