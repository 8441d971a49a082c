// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_PROBEPARSERS_H
#define PLINTHD_PROBEPARSERS_H

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariantList>

// The text side of SysInfo's start-up probes, kept free of files and processes
// so that each can be fed any bytes at all: whatever the kernel, a tool or a
// damaged file hands us must come out as a value or as "unknown" (0, empty),
// never as a crash.
namespace ProbeParsers {

// Output of a tool or content of a file as lines: the text up to the first NUL
// byte (nothing after it is meant to be text), split at '\n', empty lines
// dropped.
QStringList splitLines(const QByteArray &bytes);

// Capture group 1 of the first line that PATTERN matches, or a null string.
QString firstCapture(const QString &pattern, const QStringList &lines);

// Per-core maximum clocks in MHz from the cpufreq values (kHz, one a line, in
// the order the shell listed the files). A line holding "-" repeats the value
// appended last, which is already in MHz and is divided once more; the first
// line has nothing to repeat and counts as 0.
QVariantList coresClockSpeeds(const QStringList &lines);

// The processor's name from the device tree's compatible list: the last
// non-empty comma-separated piece, up to its NUL, upper-cased; a null string
// when there is none.
QString modelFromCompatible(const QByteArray &bytes);

// The SoC's name from the "Hardware" line of /proc/cpuinfo (ARM kernels write
// one); a null string when there is none.
QString cpuinfoHardware(const QStringList &cpuinfoLines);

// Facts picked out of lscpu's output and /proc/meminfo.
uint lscpuCoreCount(const QStringList &lscpuLines);
uint lscpuMaxClockMHz(const QStringList &lscpuLines);
qulonglong memInfoTotalBytes(const QStringList &memInfoLines);
qulonglong memInfoFreeBytes(const QStringList &memInfoLines);

// The first WIDTHxHEIGHT of a display modes file ("U:720x1440p-0").
QString screenResolution(const QStringList &modeLines);

} // namespace ProbeParsers

#endif // PLINTHD_PROBEPARSERS_H
