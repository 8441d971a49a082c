// SPDX-License-Identifier: BSD-3-Clause
// SysInfo's cameras: measuring the still resolution of the first back and
// front camera, and following the camera access policy.

#include "sysinfo.h"

#include "devicedescriptionfile.h"
#include "logging.h"

#include <accesspolicy.h>

#include <QCameraImageCapture>
#include <QCameraInfo>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QDBusServiceWatcher>
#include <QImageEncoderSettings>

namespace {

const QString PolicyManagerService = QStringLiteral("org.norvu.PolicyManager");
const QString BackResolutionsKey = QStringLiteral("backResolutions");
const QString FrontResolutionsKey = QStringLiteral("frontResolutions");

// Measurements of both cameras over the whole life of the process; every
// second one announces cameraInitFinished().
int cameraMeasurements = 0;

// Whole megapixels of the largest size. The product is a signed 32-bit
// number, as the camera stack reports sizes: a size beyond 2^31 pixels wraps
// and cannot win.
double megapixels(const QList<QSize> &sizes)
{
    qint32 largest = 0;
    for (const QSize &size : sizes) {
        const auto pixels = static_cast<qint32>(qint64(size.width()) * qint64(size.height()));
        if (pixels > largest)
            largest = pixels;
    }
    return QString::number(largest / 1000000.0, 'f', 0).toDouble();
}

} // namespace

void SysInfo::watchPolicyManager()
{
    QDBusConnection bus = QDBusConnection::systemBus();
    auto *watcher = new QDBusServiceWatcher(this);
    watcher->setConnection(bus);
    watcher->addWatchedService(PolicyManagerService);
    watcher->setWatchMode(QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration);
    // Every registration seen while waiting adds one more connection, so a
    // manager that comes back twice makes each policy change count twice.
    connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, [this] {
        if (waitForPolicyManager)
            connect(accessPolicy, &Brisa::AccessPolicy::cameraEnabledChanged, this, &SysInfo::cameraAccessChanged);
    });

    QDBusConnectionInterface *busInterface = bus.interface();
    const QDBusReply<bool> registered = busInterface ? busInterface->isServiceRegistered(PolicyManagerService)
                                                     : QDBusReply<bool>();
    if (registered.isValid() && registered.value()) {
        connect(accessPolicy, &Brisa::AccessPolicy::cameraEnabledChanged, this, &SysInfo::cameraAccessChanged);
        // Later registrations change nothing. Only the watcher's own signals are
        // cut: the bus connection keeps its link to the watcher's destruction.
        disconnect(watcher, &QDBusServiceWatcher::serviceRegistered, nullptr, nullptr);
        disconnect(watcher, &QDBusServiceWatcher::serviceUnregistered, nullptr, nullptr);
        disconnect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, nullptr, nullptr);
    } else {
        waitForPolicyManager = true;
    }

    initCameras();
}

// The policy's camera state itself is never read: a change is a reason to try
// the cameras again, and clients are told that camera access changed.
void SysInfo::cameraAccessChanged()
{
    initCameras();
    emit cameraEnabledChanged(true);
}

void SysInfo::initCameras()
{
    if (mainCameraResolution != 0.0 && frontalCameraResolution != 0.0)
        return;

    const QList<QCameraInfo> back = QCameraInfo::availableCameras(QCamera::BackFace);
    const QList<QCameraInfo> front = QCameraInfo::availableCameras(QCamera::FrontFace);
    if (back.isEmpty() && front.isEmpty()) {
        qCWarning(lcPlinthd) << "No cameras found.";
        return;
    }

    if (back.isEmpty())
        qCWarning(lcPlinthd) << "Back face cameras is missing";
    else
        replaceCamera(&mainCamera, back.first(), QCamera::BackFace, &SysInfo::mainCameraStatusChanged);

    if (front.isEmpty())
        qCWarning(lcPlinthd) << "Front face cameras is missing";
    else
        replaceCamera(&frontalCamera, front.first(), QCamera::FrontFace, &SysInfo::frontalCameraStatusChanged);
}

// Even a camera whose resolution is known is made anew and loaded; its status
// slot then ignores it, so it stays loaded.
void SysInfo::replaceCamera(QCamera **camera, const QCameraInfo &info, QCamera::Position position,
                            void (SysInfo::*statusSlot)(QCamera::Status))
{
    delete *camera;
    *camera = new QCamera(info, this);
    connect(*camera, &QCamera::statusChanged, this, statusSlot);
    if (info.position() == position)
        (*camera)->load();
}

void SysInfo::mainCameraStatusChanged(QCamera::Status status)
{
    measureCamera(mainCamera, status, &mainCameraResolution, BackResolutionsKey);
}

void SysInfo::frontalCameraStatusChanged(QCamera::Status status)
{
    measureCamera(frontalCamera, status, &frontalCameraResolution, FrontResolutionsKey);
}

// A camera that measured 0 keeps its field at 0.0, so the next initCameras()
// tries it again; one already measured is left loaded and ignored.
void SysInfo::measureCamera(QCamera *camera, QCamera::Status status, double *resolution, const QString &fileKey)
{
    if (*resolution != 0.0 || (status != QCamera::LoadedStatus && status != QCamera::ActiveStatus))
        return;

    QCameraImageCapture capture(camera);
    *resolution = megapixels(capture.supportedResolutions(QImageEncoderSettings()));
    DeviceDescriptionFile().record(fileKey, *resolution);
    emit cameraEnabledChanged(true);
    camera->unload();

    if (cameraMeasurements == 1) {
        cameraMeasurements = 0;
        emit cameraInitFinished();
    } else {
        ++cameraMeasurements;
    }
}
