// SPDX-License-Identifier: BSD-3-Clause
#include "sysinfo.h"

#include "filecontent.h"
#include "logging.h"
#include "packagedatabase.h"
#include "probeparsers.h"

#include <aboutsettings.h>
#include <accesspolicy.h>
#include <batterystatus.h>
#include <deviceinfo.h>

#include <QCamera>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QProcess>

#include <optional>

namespace {

// A child that has not finished by then is given up on: its answers become
// "unknown" rather than holding the daemon's start any longer.
const int ProcessTimeoutMs = 30000;

const QString MemInfoPath = QStringLiteral("/proc/meminfo");
const QString CompatiblePath = QStringLiteral("/proc/device-tree/compatible");
// The framebuffer's modes come first: on devices that have both, the DRM
// connector's list may hold modes the panel is not driven at.
const QString ScreenModesPaths[] = {
    QStringLiteral("/sys/class/graphics/fb0/modes"),
    QStringLiteral("/sys/class/drm/card0/card0-DSI-1/modes"),
};
const QByteArray CertificationPackage = QByteArrayLiteral("content-configuration-cert");
const uint OsTypeCode = 64;

// Standard output of one run of PROGRAM; standard error is not wanted. A child
// that cannot start gives nothing, and one that outlives the limit gives what
// it had written by then and is killed, so the same QProcess can run again.
QByteArray runForOutput(QProcess &process, const QString &program, const QStringList &arguments)
{
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments, QIODevice::ReadWrite);
    if (process.waitForFinished(ProcessTimeoutMs))
        return process.readAllStandardOutput();
    const QByteArray output = process.readAllStandardOutput();
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(-1);
    }
    return output;
}

QStringList runShellForLines(QProcess &process, const QString &command)
{
    return ProbeParsers::splitLines(runForOutput(process, QStringLiteral("bash"),
                                                 {QStringLiteral("-c"), command}));
}

void warnUnreadable(const QString &path)
{
    qCWarning(lcPlinthd).noquote() << QStringLiteral("Can't read file ") + path;
}

// The content of a kernel file; nothing (and a warning) when it cannot be
// opened. A file that opens but fails to read counts as empty, not as missing.
std::optional<QByteArray> readKernelFile(const QString &path)
{
    bool opened = false;
    const QByteArray bytes = FileContent::read(path, &opened);
    if (!opened) {
        warnUnreadable(path);
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

SysInfo::SysInfo(QObject *parent)
    : QObject(parent)
{
    accessPolicy = new Brisa::AccessPolicy(nullptr);
    waitForPolicyManager = false;

    if (lscpuLines.isEmpty()) {
        QProcess lscpu;
        lscpuLines = ProbeParsers::splitLines(runForOutput(lscpu, QStringLiteral("lscpu"), {}));
    }

    probeProcessor();
    probeCertification();
    probeVirtualization();

    if (memInfoLines.isEmpty())
        readMemInfo();
    if (screenModeLines.isEmpty())
        readScreenModes();

    batteryStatus = new BatteryStatus(this);
    aboutSettings = new AboutSettings(this);
    deviceFacts = new DeviceInfo(this);

    // Last, once every other fact is known. Measuring is asynchronous: it ends
    // from the event loop, when each camera reports that it has loaded.
    watchPolicyManager();
}

SysInfo::~SysInfo()
{
    delete accessPolicy;
    delete frontalCamera;
    delete mainCamera;
    delete deviceFacts;
    delete aboutSettings;
    delete batteryStatus;
}

void SysInfo::probeProcessor()
{
    QProcess shell;
    if (maxCoresClockSpeed.isEmpty()) {
        // The shell expands the wildcard in name order, so cpu10 comes before
        // cpu2; the list keeps that order.
        maxCoresClockSpeed = ProbeParsers::coresClockSpeeds(runShellForLines(
            shell, QStringLiteral("cat /sys/devices/system/cpu/cpu*/cpufreq/cpuinfo_max_freq")));
    }
    if (!cpuModel.isEmpty())
        return;
    // ARM kernels name the SoC in cpuinfo's Hardware line; where that is
    // missing the device tree's compatible list names it.
    cpuModel = ProbeParsers::cpuinfoHardware(
        runShellForLines(shell, QStringLiteral("cat /proc/cpuinfo | grep Hardware")));
    if (!cpuModel.isEmpty())
        return;
    const std::optional<QByteArray> compatible = readKernelFile(CompatiblePath);
    cpuModel = compatible ? ProbeParsers::modelFromCompatible(*compatible) : QString();
}

void SysInfo::probeCertification()
{
    osCertified = PackageDatabase::hasPackageNamed(CertificationPackage);
}

// systemd knows best whether we run in a virtual machine or a container; both
// count as emulated for applications.
void SysInfo::probeVirtualization()
{
    QDBusInterface systemd(QStringLiteral("org.freedesktop.systemd1"), QStringLiteral("/org/freedesktop/systemd1"),
                           QStringLiteral("org.freedesktop.systemd1.Manager"), QDBusConnection::systemBus());
    const QVariant virtualization = systemd.property("Virtualization");
    if (virtualization.isValid() && virtualization.canConvert<QString>()) {
        osEmulated = !virtualization.toString().isEmpty();
        return;
    }
    qCWarning(lcPlinthd) << "Invalid result from 'Virtualization' DBus property";
    osEmulated = false;
}

void SysInfo::readMemInfo()
{
    if (!readFileLines(MemInfoPath, &memInfoLines))
        memInfoLines.clear();
}

// The first modes file that opens decides, even when it is empty.
void SysInfo::readScreenModes()
{
    for (const QString &path : ScreenModesPaths) {
        if (readFileLines(path, &screenModeLines))
            return;
    }
    screenModeLines.clear();
}

uint SysInfo::getNumberCpuCores()
{
    return ProbeParsers::lscpuCoreCount(lscpuLines);
}

uint SysInfo::getMaxCpuClockSpeed()
{
    return ProbeParsers::lscpuMaxClockMHz(lscpuLines);
}

QVariantList SysInfo::getMaxCpuCoresClockSpeed()
{
    return maxCoresClockSpeed;
}

QString SysInfo::getCpuModel()
{
    return cpuModel;
}

// Reads whatever meminfo lines are held: those of start-up, or those of the
// last getRamFreeSize().
qulonglong SysInfo::getRamTotalSize()
{
    return ProbeParsers::memInfoTotalBytes(memInfoLines);
}

qulonglong SysInfo::getRamFreeSize()
{
    readMemInfo();
    return ProbeParsers::memInfoFreeBytes(memInfoLines);
}

QString SysInfo::getScreenResolution()
{
    return ProbeParsers::screenResolution(screenModeLines);
}

uint SysInfo::getBatteryChargePercentage()
{
    return uint(batteryStatus->chargePercentage());
}

bool SysInfo::hasGNSS()
{
    return deviceFacts->hasFeature(DeviceInfo::FeatureGNSS);
}

bool SysInfo::hasNFC()
{
    return deviceFacts->hasFeature(DeviceInfo::FeatureNFC);
}

bool SysInfo::hasBluetooth()
{
    return deviceFacts->hasFeature(DeviceInfo::FeatureBluetooth);
}

bool SysInfo::hasWlan()
{
    return deviceFacts->hasFeature(DeviceInfo::FeatureWlan);
}

double SysInfo::getMainCameraResolution()
{
    return mainCameraResolution > 0.0 ? mainCameraResolution : 0.0;
}

double SysInfo::getFrontalCameraResolution()
{
    return frontalCameraResolution > 0.0 ? frontalCameraResolution : 0.0;
}

QString SysInfo::getOsVersion()
{
    return QStringLiteral("Vireo %1").arg(aboutSettings->softwareVersionId());
}

QString SysInfo::getDeviceModel()
{
    return deviceFacts->prettyName();
}

QString SysInfo::getSerialNumber()
{
    return aboutSettings->serial();
}

// No file or service gives the system's type code; it is fixed for this OS.
uint SysInfo::osType()
{
    return OsTypeCode;
}

bool SysInfo::isOsCertified()
{
    return osCertified;
}

bool SysInfo::isOsEmulated()
{
    return osEmulated;
}
