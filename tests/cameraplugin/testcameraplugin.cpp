// SPDX-License-Identifier: BSD-3-Clause
#include "testcameraplugin.h"

#include "testcameras.h"
#include "testcameraservice.h"

static bool isCameraService(const QByteArray &service)
{
    return service == Q_MEDIASERVICE_CAMERA;
}

QMediaService *TestCameraPlugin::create(const QString &key)
{
    if (key != QLatin1String(Q_MEDIASERVICE_CAMERA))
        return nullptr;
    return new TestCameraService(TestCameras::fromEnvironment());
}

void TestCameraPlugin::release(QMediaService *service)
{
    delete service;
}

QList<QByteArray> TestCameraPlugin::devices(const QByteArray &service) const
{
    QList<QByteArray> names;
    if (!isCameraService(service))
        return names;
    const QList<TestCamera> cameras = TestCameras::fromEnvironment();
    for (const TestCamera &camera : cameras)
        names.append(camera.deviceName);
    return names;
}

QString TestCameraPlugin::deviceDescription(const QByteArray &service, const QByteArray &device)
{
    if (!devices(service).contains(device))
        return QString();
    return QStringLiteral("Test camera ") + QString::fromLatin1(device);
}

QByteArray TestCameraPlugin::defaultDevice(const QByteArray &service) const
{
    return devices(service).value(0);
}

QCamera::Position TestCameraPlugin::cameraPosition(const QByteArray &device) const
{
    const QList<TestCamera> cameras = TestCameras::fromEnvironment();
    for (const TestCamera &camera : cameras) {
        if (camera.deviceName == device)
            return camera.position;
    }
    return QCamera::UnspecifiedPosition;
}

int TestCameraPlugin::cameraOrientation(const QByteArray &) const
{
    return 0;
}
