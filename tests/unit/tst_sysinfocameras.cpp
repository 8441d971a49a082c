// SPDX-License-Identifier: BSD-3-Clause
#include "sysinfo.h"

#include <policymanager.h>

#include "mountnamespace.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>

#include <sys/mount.h>
#include <unistd.h>

// SysInfo's cameras on the test media service plugin, in this process.
class TestSysInfoCameras : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void zeroIsMeasuredAgainOnEveryPolicyChange();
    void eachCameraIsMeasuredOnce();
    void aNewProviderMeasuresAnew();

    void megapixels_data();
    void megapixels();

private:
    void useCameras(const QByteArray &description);
    void startManager();
    void announcePolicyChange();

    QDBusConnection m_manager{QString()};
};

void TestSysInfoCameras::initTestCase()
{
    // Only the test plugin (the folder above its "mediaservice" folder): Qt's own
    // plugin folder may hold the system's camera backend, which would add the
    // machine's cameras.
    QCoreApplication::setLibraryPaths({QFileInfo(QStringLiteral(PLINTHD_TEST_CAMERA_PLUGIN_DIR)).path()});
    QVERIFY(QDBusConnection::systemBus().isConnected());
}

void TestSysInfoCameras::cleanup()
{
    if (m_manager.isConnected())
        QDBusConnection::disconnectFromBus(m_manager.name());
    m_manager = QDBusConnection(QString());
}

void TestSysInfoCameras::useCameras(const QByteArray &description)
{
    qputenv("PLINTHD_TEST_CAMERAS", description);
}

void TestSysInfoCameras::startManager()
{
    m_manager = QDBusConnection::connectToBus(QDBusConnection::SystemBus, QStringLiteral("policy-manager"));
    QVERIFY(m_manager.registerService(QLatin1String(PolicyManager::ServiceName)));
}

void TestSysInfoCameras::announcePolicyChange()
{
    QVERIFY(m_manager.send(QDBusMessage::createSignal(QLatin1String(PolicyManager::ObjectPath),
                                                      QLatin1String(PolicyManager::InterfaceName),
                                                      QLatin1String(PolicyManager::CameraAccessChangedSignal))));
}

// A camera at 0 megapixels is measured again on every policy change: each
// change is announced, and so is each measurement.
void TestSysInfoCameras::zeroIsMeasuredAgainOnEveryPolicyChange()
{
    useCameras("back:640x480");
    startManager();
    SysInfo info(nullptr, QStringLiteral(PLINTHD_CAMERA_MODULE));
    QSignalSpy enabled(&info, &SysInfo::cameraEnabledChanged);

    QTRY_COMPARE(enabled.count(), 1);
    QCOMPARE(enabled.first(), QVariantList{true});
    QCOMPARE(info.getMainCameraResolution(), 0.0);

    // The change itself, and the measurement it starts.
    for (int change = 1; change <= 3; ++change) {
        announcePolicyChange();
        QTRY_COMPARE(enabled.count(), 1 + 2 * change);
    }
    QTest::qWait(50);
    QCOMPARE(enabled.count(), 7);
    for (const QVariantList &arguments : qAsConst(enabled))
        QCOMPARE(arguments, QVariantList{true});
    QCOMPARE(info.getMainCameraResolution(), 0.0);
}

void TestSysInfoCameras::eachCameraIsMeasuredOnce()
{
    useCameras("back:4032x3024,front:640x480");
    SysInfo info(nullptr, QStringLiteral(PLINTHD_CAMERA_MODULE));
    QSignalSpy enabled(&info, &SysInfo::cameraEnabledChanged);

    QTRY_COMPARE(enabled.count(), 2);
    QTest::qWait(50);
    QCOMPARE(enabled.count(), 2);
    QCOMPARE(info.getMainCameraResolution(), 12.0);
    QCOMPARE(info.getFrontalCameraResolution(), 0.0);
}

// Nothing of one provider's measurements carries over to the next.
void TestSysInfoCameras::aNewProviderMeasuresAnew()
{
    useCameras("back:4032x3024");
    {
        SysInfo first(nullptr, QStringLiteral(PLINTHD_CAMERA_MODULE));
        QSignalSpy enabled(&first, &SysInfo::cameraEnabledChanged);
        QTRY_COMPARE(enabled.count(), 1);
        QCOMPARE(first.getMainCameraResolution(), 12.0);
    }
    SysInfo second(nullptr, QStringLiteral(PLINTHD_CAMERA_MODULE));
    QCOMPARE(second.getMainCameraResolution(), 0.0);
    QSignalSpy enabled(&second, &SysInfo::cameraEnabledChanged);
    QTRY_COMPARE(enabled.count(), 1);
    QCOMPARE(second.getMainCameraResolution(), 12.0);
}

void TestSysInfoCameras::megapixels_data()
{
    QTest::addColumn<QByteArray>("cameras");
    QTest::addColumn<double>("main");
    QTest::addColumn<double>("frontal");

    QTest::newRow("12 and 0") << QByteArray("back:4032x3024,front:640x480") << 12.0 << 0.0;
    // Rounded to the nearest whole number, not cut.
    QTest::newRow("rounded") << QByteArray("back:2999x1000,front:1499x1000") << 3.0 << 1.0;
    QTest::newRow("largest size wins") << QByteArray("back:1920x1080+4032x3024+640x480,front:2592x1944+320x240")
                                       << 12.0 << 5.0;
    QTest::newRow("no sizes") << QByteArray("back:,front:1920x1080") << 0.0 << 2.0;
    // 65536 x 32768 pixels do not fit the signed 32-bit product and lose.
    QTest::newRow("product wraps") << QByteArray("back:65536x32768+1920x1080,front:46341x46341") << 2.0 << 0.0;
}

void TestSysInfoCameras::megapixels()
{
    QFETCH(QByteArray, cameras);
    QFETCH(double, main);
    QFETCH(double, frontal);
    useCameras(cameras);
    SysInfo info(nullptr, QStringLiteral(PLINTHD_CAMERA_MODULE));
    QSignalSpy enabled(&info, &SysInfo::cameraEnabledChanged);

    QTRY_COMPARE(enabled.count(), 2);
    QCOMPARE(info.getMainCameraResolution(), main);
    QCOMPARE(info.getFrontalCameraResolution(), frontal);
}

// SysInfo records what it measures in "/etc/plinth/specification.json". In
// the private mount namespace CTest runs the test in, an empty folder over
// /etc/plinth keeps the machine's file out of reach; run anywhere else, the
// test goes on only where it could not have written that file anyway.
static bool isolateDeviceFile()
{
    const char *folder = "/etc/plinth";
    if (!MountNamespace::inside())
        return !QFileInfo(QStringLiteral("/etc/plinth/specification.json")).isWritable();
    return !QFileInfo::exists(QLatin1String(folder)) || ::mount("plinthd-test", folder, "tmpfs", 0, nullptr) == 0;
}

int main(int argc, char *argv[])
{
    if (!isolateDeviceFile()) {
        fprintf(stderr, "cannot keep this test away from /etc/plinth/specification.json\n");
        return 1;
    }
    QCoreApplication app(argc, argv);
    TestSysInfoCameras test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sysinfocameras.moc"
