// SPDX-License-Identifier: BSD-3-Clause
#include "multimediacameras.h"

#include "devicedescriptionfile.h"
#include "logging.h"

#include <QCameraImageCapture>
#include <QCameraInfo>
#include <QImageEncoderSettings>

namespace {

const QString BackResolutionsKey = QStringLiteral("backResolutions");
const QString FrontResolutionsKey = QStringLiteral("frontResolutions");

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

MultimediaCameras::MultimediaCameras(const MeasuredCallback &measured)
    : m_measured(measured)
{
}

MultimediaCameras::~MultimediaCameras()
{
    delete m_frontalCamera;
    delete m_mainCamera;
}

void MultimediaCameras::measure()
{
    if (m_mainResolution != 0.0 && m_frontalResolution != 0.0)
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
        replaceCamera(&m_mainCamera, back.first(), QCamera::BackFace, &MultimediaCameras::measureMainCamera);

    if (front.isEmpty())
        qCWarning(lcPlinthd) << "Front face cameras is missing";
    else
        replaceCamera(&m_frontalCamera, front.first(), QCamera::FrontFace, &MultimediaCameras::measureFrontalCamera);
}

// Even a camera whose resolution is known is made anew and loaded; its status
// slot then ignores it, so it stays loaded.
void MultimediaCameras::replaceCamera(QCamera **camera, const QCameraInfo &info, QCamera::Position position,
                                      void (MultimediaCameras::*statusSlot)(QCamera::Status))
{
    delete *camera;
    *camera = new QCamera(info, this);
    connect(*camera, &QCamera::statusChanged, this, statusSlot);
    if (info.position() == position)
        (*camera)->load();
}

void MultimediaCameras::measureMainCamera(QCamera::Status status)
{
    measureCamera(m_mainCamera, status, &m_mainResolution, BackResolutionsKey);
}

void MultimediaCameras::measureFrontalCamera(QCamera::Status status)
{
    measureCamera(m_frontalCamera, status, &m_frontalResolution, FrontResolutionsKey);
}

// A camera that measured 0 keeps its field at 0.0, so the next measure()
// tries it again; one already measured is left loaded and ignored.
void MultimediaCameras::measureCamera(QCamera *camera, QCamera::Status status, double *resolution,
                                      const QString &fileKey)
{
    if (*resolution != 0.0 || (status != QCamera::LoadedStatus && status != QCamera::ActiveStatus))
        return;

    QCameraImageCapture capture(camera);
    *resolution = megapixels(capture.supportedResolutions(QImageEncoderSettings()));
    DeviceDescriptionFile().record(fileKey, *resolution);
    m_measured();
    camera->unload();
}

// The module's entry: visible, while everything else it carries (the static
// libraries of the daemon it links) stays inside it.
// Named as CreateCameraResolutionsName says.
extern "C" Q_DECL_EXPORT CameraResolutions *plinthd_create_camera_resolutions(
    const CameraResolutions::MeasuredCallback &measured)
{
    return new MultimediaCameras(measured);
}
