// SPDX-License-Identifier: BSD-3-Clause
#include "hardwarefacts.h"

#include "filecontent.h"
#include "logging.h"
#include "probeparsers.h"

#include <optional>

namespace {

const QString MemInfoPath = QStringLiteral("/proc/meminfo");
const QString CompatiblePath = QStringLiteral("/proc/device-tree/compatible");
// The framebuffer's modes come first: on devices that have both, the DRM
// connector's list may hold modes the panel is not driven at.
const QString ScreenModesPaths[] = {
    QStringLiteral("/sys/class/graphics/fb0/modes"),
    QStringLiteral("/sys/class/drm/card0/card0-DSI-1/modes"),
};

// The content of a kernel file; nothing (and a warning) when it cannot be
// opened. A file that opens but fails to read counts as empty, not as missing.
std::optional<QByteArray> readKernelFile(const QString &path)
{
    bool opened = false;
    const QByteArray bytes = FileContent::read(path, &opened);
    if (!opened) {
        qCWarning(lcPlinthd).noquote() << QStringLiteral("Can't read file ") + path;
        return std::nullopt;
    }
    return bytes;
}

// The lines of a kernel file; false (and a warning) when it cannot be opened.
bool readFileLines(const QString &path, QStringList *lines)
{
    const std::optional<QByteArray> bytes = readKernelFile(path);
    if (!bytes)
        return false;
    *lines = ProbeParsers::splitLines(*bytes);
    return true;
}

} // namespace

HardwareFacts::HardwareFacts()
    // ARM kernels name the SoC in cpuinfo's Hardware line.
    : m_cpuinfoHardware(ProbeProcess::shell(QStringLiteral("cat /proc/cpuinfo | grep Hardware")))
    // The shell expands the wildcard in name order, so cpu10 comes before
    // cpu2; the list keeps that order.
    , m_coresMaxFrequencies(ProbeProcess::shell(
          QStringLiteral("cat /sys/devices/system/cpu/cpu*/cpufreq/cpuinfo_max_freq")))
    , m_lscpu(QStringLiteral("lscpu"), {})
{
}

void HardwareFacts::collect()
{
    m_lscpuLines = m_lscpu.lines();
    m_maxCoresClockSpeed = ProbeParsers::coresClockSpeeds(m_coresMaxFrequencies.lines());
    m_cpuModel = ProbeParsers::cpuinfoHardware(m_cpuinfoHardware.lines());
    // Where the Hardware line is missing, the device tree's compatible list
    // names the SoC.
    if (m_cpuModel.isEmpty()) {
        const std::optional<QByteArray> compatible = readKernelFile(CompatiblePath);
        m_cpuModel = compatible ? ProbeParsers::modelFromCompatible(*compatible) : QString();
    }
    readMemInfo();
    readScreenModes();
}

uint HardwareFacts::numberCpuCores() const
{
    return ProbeParsers::lscpuCoreCount(m_lscpuLines);
}

uint HardwareFacts::maxCpuClockSpeed() const
{
    return ProbeParsers::lscpuMaxClockMHz(m_lscpuLines);
}

QVariantList HardwareFacts::maxCpuCoresClockSpeed() const
{
    return m_maxCoresClockSpeed;
}

QString HardwareFacts::cpuModel() const
{
    return m_cpuModel;
}

qulonglong HardwareFacts::ramTotalSize() const
{
    return ProbeParsers::memInfoTotalBytes(m_memInfoLines);
}

qulonglong HardwareFacts::ramFreeSize()
{
    readMemInfo();
    return ProbeParsers::memInfoFreeBytes(m_memInfoLines);
}

QString HardwareFacts::screenResolution() const
{
    return ProbeParsers::screenResolution(m_screenModeLines);
}

void HardwareFacts::readMemInfo()
{
    if (!readFileLines(MemInfoPath, &m_memInfoLines))
        m_memInfoLines.clear();
}

// The first modes file that opens decides, even when it is empty.
void HardwareFacts::readScreenModes()
{
    for (const QString &path : ScreenModesPaths) {
        if (readFileLines(path, &m_screenModeLines))
            return;
    }
    m_screenModeLines.clear();
}
