// SPDX-License-Identifier: BSD-3-Clause
#include "testcameracontrols.h"

#include "testcameraservice.h"

#include <QTimer>

static QCamera::Status settledStatus(QCamera::State state)
{
    switch (state) {
    case QCamera::ActiveState:
        return QCamera::ActiveStatus;
    case QCamera::LoadedState:
        return QCamera::LoadedStatus;
    case QCamera::UnloadedState:
        break;
    }
    return QCamera::UnloadedStatus;
}

TestCameraControl::TestCameraControl(TestCameraService *service)
    : QCameraControl(service)
    , m_service(service)
{
}

void TestCameraControl::setState(QCamera::State state)
{
    if (state == m_state)
        return;
    const QCamera::State previous = m_state;
    m_state = state;
    emit stateChanged(state);

    const QByteArray device = m_service->selectedCamera().deviceName;
    QCamera::Status passing;
    if (state == QCamera::UnloadedState) {
        TestCameras::logEvent(QStringLiteral("unload"), device);
        passing = QCamera::UnloadingStatus;
    } else if (previous == QCamera::UnloadedState) {
        TestCameras::logEvent(QStringLiteral("load"), device);
        passing = QCamera::LoadingStatus;
    } else {
        passing = state == QCamera::ActiveState ? QCamera::StartingStatus : QCamera::StoppingStatus;
    }
    setStatus(passing);
    QTimer::singleShot(TestCameras::settleDelay(), this, [this, state] { finishTransition(state); });
}

// A transition that another setState() overtook in the meantime is dropped:
// the newer one reports its own end.
void TestCameraControl::finishTransition(QCamera::State target)
{
    if (m_state == target)
        setStatus(settledStatus(target));
}

void TestCameraControl::setStatus(QCamera::Status status)
{
    if (status == m_status)
        return;
    m_status = status;
    emit statusChanged(status);
}

void TestCameraControl::setCaptureMode(QCamera::CaptureModes mode)
{
    if (mode == m_captureMode || !isCaptureModeSupported(mode))
        return;
    m_captureMode = mode;
    emit captureModeChanged(mode);
}

bool TestCameraControl::isCaptureModeSupported(QCamera::CaptureModes mode) const
{
    return mode == QCamera::CaptureStillImage || mode == QCamera::CaptureViewfinder;
}

bool TestCameraControl::canChangeProperty(PropertyChangeType, QCamera::Status) const
{
    return true;
}

TestCameraInfoControl::TestCameraInfoControl(TestCameraService *service)
    : QCameraInfoControl(service)
    , m_service(service)
{
}

QCamera::Position TestCameraInfoControl::cameraPosition(const QString &deviceName) const
{
    for (const TestCamera &camera : m_service->cameras()) {
        if (camera.deviceName == deviceName.toLatin1())
            return camera.position;
    }
    return QCamera::UnspecifiedPosition;
}

int TestCameraInfoControl::cameraOrientation(const QString &) const
{
    return 0;
}

TestCameraDeviceSelector::TestCameraDeviceSelector(TestCameraService *service)
    : QVideoDeviceSelectorControl(service)
    , m_service(service)
{
}

int TestCameraDeviceSelector::deviceCount() const
{
    return m_service->cameras().size();
}

QString TestCameraDeviceSelector::deviceName(int index) const
{
    return QString::fromLatin1(m_service->cameras().value(index).deviceName);
}

QString TestCameraDeviceSelector::deviceDescription(int index) const
{
    return QStringLiteral("Test camera ") + deviceName(index);
}

int TestCameraDeviceSelector::selectedDevice() const
{
    return m_service->selectedIndex();
}

void TestCameraDeviceSelector::setSelectedDevice(int index)
{
    if (index < 0 || index >= deviceCount() || index == m_service->selectedIndex())
        return;
    m_service->select(index);
    emit selectedDeviceChanged(index);
    emit selectedDeviceChanged(deviceName(index));
}

TestImageCaptureControl::TestImageCaptureControl(QObject *parent)
    : QCameraImageCaptureControl(parent)
{
}

int TestImageCaptureControl::capture(const QString &)
{
    return -1;
}

TestImageEncoderControl::TestImageEncoderControl(TestCameraService *service)
    : QImageEncoderControl(service)
    , m_service(service)
{
}

QStringList TestImageEncoderControl::supportedImageCodecs() const
{
    return {QStringLiteral("image/jpeg")};
}

QString TestImageEncoderControl::imageCodecDescription(const QString &codec) const
{
    return codec == QLatin1String("image/jpeg") ? QStringLiteral("JPEG") : QString();
}

QList<QSize> TestImageEncoderControl::supportedResolutions(const QImageEncoderSettings &, bool *continuous) const
{
    if (continuous)
        *continuous = false;
    const TestCamera camera = m_service->selectedCamera();
    TestCameras::logEvent(QStringLiteral("resolutions"), camera.deviceName);
    return camera.stillResolutions;
}
