// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_CAMERARESOLUTIONS_H
#define PLINTHD_CAMERARESOLUTIONS_H

#include <QCamera>
#include <QObject>
#include <QString>

class QCameraInfo;

// The still resolution, in whole megapixels, of the first back and the first
// front camera. Measuring is asynchronous: measure() loads the cameras, and
// each is measured when it reports that it has loaded, recorded in the device
// description file and unloaded again. Until then its resolution is 0.0.
class CameraResolutions : public QObject
{
    Q_OBJECT

public:
    explicit CameraResolutions(QObject *parent);
    ~CameraResolutions() override;

    // Loads the cameras again unless both resolutions are known.
    void measure();

    double mainResolution() const { return m_mainResolution; }
    double frontalResolution() const { return m_frontalResolution; }

signals:
    // One camera has been measured (its resolution may still be 0.0).
    void measured();

private slots:
    void measureMainCamera(QCamera::Status status);
    void measureFrontalCamera(QCamera::Status status);

private:
    void replaceCamera(QCamera **camera, const QCameraInfo &info, QCamera::Position position,
                       void (CameraResolutions::*statusSlot)(QCamera::Status));
    void measureCamera(QCamera *camera, QCamera::Status status, double *resolution, const QString &fileKey);

    double m_mainResolution = 0.0;
    double m_frontalResolution = 0.0;
    // Made anew on every measuring round; empty when the device has no camera
    // on that side.
    QCamera *m_mainCamera = nullptr;
    QCamera *m_frontalCamera = nullptr;
};

#endif // PLINTHD_CAMERARESOLUTIONS_H
