// SPDX-License-Identifier: BSD-3-Clause
#include "testcameraservice.h"

#include "testcameracontrols.h"

#include <cstring>

TestCameraService::TestCameraService(const QList<TestCamera> &cameras, QObject *parent)
    : QMediaService(parent)
    , m_cameras(cameras)
    , m_cameraControl(new TestCameraControl(this))
    , m_infoControl(new TestCameraInfoControl(this))
    , m_deviceSelector(new TestCameraDeviceSelector(this))
    , m_captureControl(new TestImageCaptureControl(this))
    , m_encoderControl(new TestImageEncoderControl(this))
{
}

TestCameraService::~TestCameraService() = default;

QMediaControl *TestCameraService::requestControl(const char *name)
{
    if (std::strcmp(name, QCameraControl_iid) == 0)
        return m_cameraControl;
    if (std::strcmp(name, QCameraInfoControl_iid) == 0)
        return m_infoControl;
    if (std::strcmp(name, QVideoDeviceSelectorControl_iid) == 0)
        return m_deviceSelector;
    if (std::strcmp(name, QCameraImageCaptureControl_iid) == 0)
        return m_captureControl;
    if (std::strcmp(name, QImageEncoderControl_iid) == 0)
        return m_encoderControl;
    return nullptr;
}

// The controls live as long as the service; nothing to give back.
void TestCameraService::releaseControl(QMediaControl *)
{
}

TestCamera TestCameraService::selectedCamera() const
{
    return m_cameras.value(m_selected);
}
