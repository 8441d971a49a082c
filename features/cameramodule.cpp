// SPDX-License-Identifier: BSD-3-Clause
#include "cameramodule.h"

#include "logging.h"

#include <QCoreApplication>

namespace {

// The daemon's answer without a camera module: no camera was ever measured.
class UnmeasuredCameras : public CameraResolutions
{
public:
    void measure() override {}
    double mainResolution() const override { return 0.0; }
    double frontalResolution() const override { return 0.0; }
};

} // namespace

CameraModule::CameraModule(const QString &path)
    : m_library(path)
    , m_loading([this] { m_loaded = m_library.load(); })
{
}

QString CameraModule::besideTheProgram()
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + QStringLiteral(PLINTHD_CAMERA_MODULE_PATH);
}

std::unique_ptr<CameraResolutions> CameraModule::create(const CameraResolutions::MeasuredCallback &measured)
{
    m_loading.wait();
    const auto createResolutions = m_loaded
        ? reinterpret_cast<CreateCameraResolutions>(m_library.resolve(CreateCameraResolutionsName))
        : nullptr;
    if (!createResolutions) {
        qCWarning(lcPlinthd).noquote() << "Can't load the camera module:" << m_library.errorString();
        return std::make_unique<UnmeasuredCameras>();
    }
    return std::unique_ptr<CameraResolutions>(createResolutions(measured));
}
