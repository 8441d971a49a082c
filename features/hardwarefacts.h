// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_HARDWAREFACTS_H
#define PLINTHD_HARDWAREFACTS_H

#include "probeprocess.h"

#include <QString>
#include <QStringList>
#include <QVariantList>

// The processor, memory and screen of the device, from lscpu, two shell
// commands and the kernel's files under /proc and /sys. What cannot change
// while the system runs is read once at start-up; free memory is read on
// every call.
//
// Start-up comes in two steps so that the children run side by side with the
// caller's other probes: the constructor starts them, collect() waits for
// them and reads the files.
class HardwareFacts
{
public:
    HardwareFacts();

    void collect();

    uint numberCpuCores() const;
    uint maxCpuClockSpeed() const;
    QVariantList maxCpuCoresClockSpeed() const;
    QString cpuModel() const;
    // Reads whatever meminfo lines are held: those of start-up, or those of
    // the last ramFreeSize().
    qulonglong ramTotalSize() const;
    qulonglong ramFreeSize();
    QString screenResolution() const;

private:
    void readMemInfo();
    void readScreenModes();

    // Started in this order: the longest first (a shell pipeline of two
    // programs), so that the last to finish is done as early as it can be.
    ProbeProcess m_cpuinfoHardware;
    ProbeProcess m_coresMaxFrequencies;
    ProbeProcess m_lscpu;

    QStringList m_lscpuLines;
    QStringList m_memInfoLines;
    QStringList m_screenModeLines;
    QVariantList m_maxCoresClockSpeed;
    QString m_cpuModel;
};

#endif // PLINTHD_HARDWAREFACTS_H
