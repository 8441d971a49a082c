// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTCAMERASERVICE_H
#define PLINTHD_TESTCAMERASERVICE_H

#include "testcameras.h"

#include <QMediaService>

class TestCameraControl;
class TestCameraInfoControl;
class TestCameraDeviceSelector;
class TestImageCaptureControl;
class TestImageEncoderControl;

// The camera service one QCamera gets. It knows every test camera; the device
// selector decides which one this QCamera is, and the other controls answer
// for that one.
class TestCameraService : public QMediaService
{
    Q_OBJECT

public:
    explicit TestCameraService(const QList<TestCamera> &cameras, QObject *parent = nullptr);
    ~TestCameraService() override;

    QMediaControl *requestControl(const char *name) override;
    void releaseControl(QMediaControl *control) override;

    const QList<TestCamera> &cameras() const { return m_cameras; }
    int selectedIndex() const { return m_selected; }
    void select(int index) { m_selected = index; }
    // An empty camera when nothing valid is selected.
    TestCamera selectedCamera() const;

private:
    QList<TestCamera> m_cameras;
    int m_selected = 0;
    TestCameraControl *m_cameraControl;
    TestCameraInfoControl *m_infoControl;
    TestCameraDeviceSelector *m_deviceSelector;
    TestImageCaptureControl *m_captureControl;
    TestImageEncoderControl *m_encoderControl;
};

#endif // PLINTHD_TESTCAMERASERVICE_H
