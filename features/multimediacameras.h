// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_MULTIMEDIACAMERAS_H
#define PLINTHD_MULTIMEDIACAMERAS_H

#include "cameraresolutions.h"

#include <QCamera>
#include <QObject>
#include <QString>

class QCameraInfo;

// CameraResolutions on Qt Multimedia's cameras; the camera module's one class.
class MultimediaCameras : public QObject, public CameraResolutions
{
    Q_OBJECT

public:
    explicit MultimediaCameras(const MeasuredCallback &measured);
    ~MultimediaCameras() override;

    void measure() override;

    double mainResolution() const override { return m_mainResolution; }
    double frontalResolution() const override { return m_frontalResolution; }

private slots:
    void measureMainCamera(QCamera::Status status);
    void measureFrontalCamera(QCamera::Status status);

private:
    void replaceCamera(QCamera **camera, const QCameraInfo &info, QCamera::Position position,
                       void (MultimediaCameras::*statusSlot)(QCamera::Status));
    void measureCamera(QCamera *camera, QCamera::Status status, double *resolution, const QString &fileKey);

    const MeasuredCallback m_measured;
    double m_mainResolution = 0.0;
    double m_frontalResolution = 0.0;
    // Made anew on every measuring round; empty when the device has no camera
    // on that side.
    QCamera *m_mainCamera = nullptr;
    QCamera *m_frontalCamera = nullptr;
};

#endif // PLINTHD_MULTIMEDIACAMERAS_H
