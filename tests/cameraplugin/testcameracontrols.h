// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTCAMERACONTROLS_H
#define PLINTHD_TESTCAMERACONTROLS_H

#include <QCameraControl>
#include <QCameraImageCaptureControl>
#include <QCameraInfoControl>
#include <QImageEncoderControl>
#include <QImageEncoderSettings>
#include <QVideoDeviceSelectorControl>

class TestCameraService;

// Loads and unloads the selected camera. Like a real backend it reports the
// final status of a transition later, from the event loop, not from inside
// load() or unload().
class TestCameraControl : public QCameraControl
{
    Q_OBJECT

public:
    explicit TestCameraControl(TestCameraService *service);

    QCamera::State state() const override { return m_state; }
    void setState(QCamera::State state) override;
    QCamera::Status status() const override { return m_status; }
    QCamera::CaptureModes captureMode() const override { return m_captureMode; }
    void setCaptureMode(QCamera::CaptureModes mode) override;
    bool isCaptureModeSupported(QCamera::CaptureModes mode) const override;
    bool canChangeProperty(PropertyChangeType changeType, QCamera::Status status) const override;

private:
    void setStatus(QCamera::Status status);
    void finishTransition(QCamera::State target);

    TestCameraService *m_service;
    QCamera::State m_state = QCamera::UnloadedState;
    QCamera::Status m_status = QCamera::UnloadedStatus;
    QCamera::CaptureModes m_captureMode = QCamera::CaptureStillImage;
};

class TestCameraInfoControl : public QCameraInfoControl
{
    Q_OBJECT

public:
    explicit TestCameraInfoControl(TestCameraService *service);

    QCamera::Position cameraPosition(const QString &deviceName) const override;
    int cameraOrientation(const QString &deviceName) const override;

private:
    TestCameraService *m_service;
};

class TestCameraDeviceSelector : public QVideoDeviceSelectorControl
{
    Q_OBJECT

public:
    explicit TestCameraDeviceSelector(TestCameraService *service);

    int deviceCount() const override;
    QString deviceName(int index) const override;
    QString deviceDescription(int index) const override;
    int defaultDevice() const override { return 0; }
    int selectedDevice() const override;
    void setSelectedDevice(int index) override;

private:
    TestCameraService *m_service;
};

// QCameraImageCapture binds to a camera only when the service has a capture
// control, and only then asks the encoder control for resolutions. Capturing
// itself is never needed, so every capture fails.
class TestImageCaptureControl : public QCameraImageCaptureControl
{
    Q_OBJECT

public:
    explicit TestImageCaptureControl(QObject *parent);

    bool isReadyForCapture() const override { return false; }
    QCameraImageCapture::DriveMode driveMode() const override { return QCameraImageCapture::SingleImageCapture; }
    void setDriveMode(QCameraImageCapture::DriveMode) override {}
    int capture(const QString &fileName) override;
    void cancelCapture() override {}
};

class TestImageEncoderControl : public QImageEncoderControl
{
    Q_OBJECT

public:
    explicit TestImageEncoderControl(TestCameraService *service);

    QStringList supportedImageCodecs() const override;
    QString imageCodecDescription(const QString &codec) const override;
    QList<QSize> supportedResolutions(const QImageEncoderSettings &settings, bool *continuous) const override;
    QImageEncoderSettings imageSettings() const override { return m_settings; }
    void setImageSettings(const QImageEncoderSettings &settings) override { m_settings = settings; }

private:
    TestCameraService *m_service;
    QImageEncoderSettings m_settings;
};

#endif // PLINTHD_TESTCAMERACONTROLS_H
