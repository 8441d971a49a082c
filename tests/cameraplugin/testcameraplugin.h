// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_TESTCAMERAPLUGIN_H
#define PLINTHD_TESTCAMERAPLUGIN_H

#include <QMediaServiceProviderPlugin>

// A media service provider that offers the cameras of PLINTHD_TEST_CAMERAS, so
// tests run QCameraInfo, QCamera and QCameraImageCapture for real without
// camera hardware. The variable is read on every question, which lets one test
// process change the cameras between cases.
class TestCameraPlugin : public QMediaServiceProviderPlugin,
                         public QMediaServiceSupportedDevicesInterface,
                         public QMediaServiceDefaultDeviceInterface,
                         public QMediaServiceCameraInfoInterface
{
    Q_OBJECT
    Q_INTERFACES(QMediaServiceSupportedDevicesInterface)
    Q_INTERFACES(QMediaServiceDefaultDeviceInterface)
    Q_INTERFACES(QMediaServiceCameraInfoInterface)
    Q_PLUGIN_METADATA(IID "org.qt-project.qt.mediaserviceproviderfactory/5.0" FILE "testcameraplugin.json")

public:
    QMediaService *create(const QString &key) override;
    void release(QMediaService *service) override;

    QList<QByteArray> devices(const QByteArray &service) const override;
    QString deviceDescription(const QByteArray &service, const QByteArray &device) override;
    QByteArray defaultDevice(const QByteArray &service) const override;
    QCamera::Position cameraPosition(const QByteArray &device) const override;
    int cameraOrientation(const QByteArray &device) const override;
};

#endif // PLINTHD_TESTCAMERAPLUGIN_H
