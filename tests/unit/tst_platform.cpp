// SPDX-License-Identifier: BSD-3-Clause
// The Linux platform classes against fake kernel and distribution files. In
// the private mount namespace CTest runs it in, the test mounts fake trees over
// /sys/class, /sys/firmware, /etc and /usr/lib/os-release, so the classes read
// the very paths they read on a device. Needs root; skipped otherwise.
#include <aboutsettings.h>
#include <batterystatus.h>
#include <deviceinfo.h>
#include <devicetree.h>
#include <filecontent.h>
#include <osrelease.h>

#include "mountnamespace.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

QByteArray nul(const char *text)
{
    return QByteArray(text) + '\0';
}

} // namespace

class TestPlatform : public QObject
{
    Q_OBJECT

private:
    QScopedPointer<QTemporaryDir> tree;
    QStringList mounted;

    QString at(const QString &relative) const { return tree->filePath(relative); }

    void write(const QString &relative, const QByteArray &content)
    {
        const QString path = at(relative);
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        QVERIFY2(file.open(QIODevice::WriteOnly | QIODevice::Truncate), qPrintable(path));
        QCOMPARE(file.write(content), qint64(content.size()));
    }

    void makeDir(const QString &relative) { QVERIFY(QDir().mkpath(at(relative))); }

    void bind(const QString &relative, const QString &target)
    {
        QVERIFY2(::mount(qPrintable(at(relative)), qPrintable(target), nullptr, MS_BIND, nullptr) == 0,
                 qPrintable(target + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno))));
        mounted.prepend(target);
    }

    // The fake device: /sys/class and /sys/firmware from the tree, an /etc
    // holding only what the test writes into etc/, and the vendor os-release.
    void mountTree()
    {
        makeDir(QStringLiteral("class"));
        makeDir(QStringLiteral("firmware"));
        makeDir(QStringLiteral("etc"));
        bind(QStringLiteral("class"), QStringLiteral("/sys/class"));
        bind(QStringLiteral("firmware"), QStringLiteral("/sys/firmware"));
        bind(QStringLiteral("etc"), QStringLiteral("/etc"));
        if (QFile::exists(at(QStringLiteral("vendor-os-release"))))
            bind(QStringLiteral("vendor-os-release"), QStringLiteral("/usr/lib/os-release"));
    }

    // /usr/lib without os-release: an overlay whose upper layer holds a
    // whiteout for it.
    void hideVendorOsRelease()
    {
        makeDir(QStringLiteral("whiteout"));
        QVERIFY(::mknod(qPrintable(at(QStringLiteral("whiteout/os-release"))), S_IFCHR | 0, makedev(0, 0)) == 0);
        const QByteArray options = "lowerdir=" + QFile::encodeName(at(QStringLiteral("whiteout"))) + ":/usr/lib";
        QVERIFY2(::mount("overlay", "/usr/lib", "overlay", MS_RDONLY, options.constData()) == 0,
                 std::strerror(errno));
        mounted.prepend(QStringLiteral("/usr/lib"));
        QVERIFY(!QFile::exists(QStringLiteral("/usr/lib/os-release")));
    }

    void addSupply(const QString &name, const QByteArray &type, const QByteArray &capacity = QByteArray())
    {
        write(QStringLiteral("class/power_supply/%1/type").arg(name), type);
        if (!capacity.isNull())
            write(QStringLiteral("class/power_supply/%1/capacity").arg(name), capacity);
    }

private slots:
    void initTestCase()
    {
        if (!MountNamespace::inside())
            QSKIP("needs root and the mount namespace of its own that ctest gives it");
    }

    void init()
    {
        tree.reset(new QTemporaryDir);
        QVERIFY(tree->isValid());
        write(QStringLiteral("vendor-os-release"), "NAME=Vireo\nVERSION_ID=99\n");
    }

    void cleanup()
    {
        for (const QString &target : qAsConst(mounted))
            ::umount2(qPrintable(target), MNT_DETACH);
        mounted.clear();
        tree.reset();
    }

    // os-release values as a shell that sources the file reads them.
    void osReleaseQuoting_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("value");
        QTest::newRow("plain") << QByteArray("VERSION_ID=5.1\n") << "5.1";
        QTest::newRow("double") << QByteArray("VERSION_ID=\"5.1 beta\"\n") << "5.1 beta";
        QTest::newRow("single") << QByteArray("VERSION_ID='5.1 $x'\n") << "5.1 $x";
        QTest::newRow("escapes") << QByteArray("VERSION_ID=\"a\\\"b\\\\c\\$d\\`e\"") << "a\"b\\c$d`e";
        QTest::newRow("other backslash kept") << QByteArray("VERSION_ID=\"a\\nb\"") << "a\\nb";
        QTest::newRow("single is literal") << QByteArray("VERSION_ID='a\\b'") << "a\\b";
        QTest::newRow("unquoted escape") << QByteArray("VERSION_ID=a\\ b") << "a b";
        QTest::newRow("joined pieces") << QByteArray("VERSION_ID=1\"2 3\"'4'") << "12 34";
        QTest::newRow("ends at blank") << QByteArray("VERSION_ID=1 # comment") << "1";
        QTest::newRow("empty") << QByteArray("VERSION_ID=\n") << "";
        QTest::newRow("empty quotes") << QByteArray("VERSION_ID=\"\"\n") << "";
        QTest::newRow("last wins") << QByteArray("VERSION_ID=1\nVERSION_ID=2\n") << "2";
        QTest::newRow("unterminated skipped") << QByteArray("VERSION_ID=1\nVERSION_ID=\"2\n") << "1";
        QTest::newRow("unterminated single") << QByteArray("VERSION_ID='2") << "";
        QTest::newRow("comment") << QByteArray("#VERSION_ID=1\n") << "";
        QTest::newRow("other keys") << QByteArray("VERSION_IDX=1\nXVERSION_ID=2\nVERSION=3\n") << "";
        QTest::newRow("indented") << QByteArray("  VERSION_ID=7\r\n") << "7";
        QTest::newRow("blank before equals") << QByteArray("VERSION_ID =7\n") << "";
        QTest::newRow("utf8") << QByteArray("VERSION_ID=\"\xc3\xa9t\xc3\xa9\"") << QString::fromUtf8("\xc3\xa9t\xc3\xa9");
        QTest::newRow("nothing") << QByteArray() << "";
        QTest::newRow("trailing backslash") << QByteArray("VERSION_ID=1\\") << "1";
    }

    void osReleaseQuoting()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, value);
        QCOMPARE(OsRelease::value(text, "VERSION_ID"), value);
    }

    void osReleaseOfHostileText()
    {
        QByteArray noise;
        for (int i = 0; i < 256; ++i)
            noise.append(char(i));
        QCOMPARE(OsRelease::value(noise.repeated(1000), "VERSION_ID"), QString());
        const QByteArray huge = "VERSION_ID=\"" + QByteArray(1 << 20, 'x') + "\"\nVERSION_ID=3\n";
        QCOMPARE(OsRelease::value(huge, "VERSION_ID"), QStringLiteral("3"));
        QCOMPARE(OsRelease::value(QByteArray("VERSION_ID=\"") + QByteArray(1 << 20, '\\'), "VERSION_ID"),
                 QString());
    }

    void deviceTreeFirstString()
    {
        QCOMPARE(DeviceTree::firstString(QByteArray("a\0b", 3)), QByteArray("a"));
        QCOMPARE(DeviceTree::firstString(QByteArray("ab")), QByteArray("ab"));
        QCOMPARE(DeviceTree::firstString(QByteArray("\0", 1)), QByteArray(""));
    }

    void readTellsMissingFromEmpty()
    {
        write(QStringLiteral("empty"), QByteArray());
        bool opened = false;
        QVERIFY(FileContent::read(at(QStringLiteral("empty")), &opened).isEmpty());
        QVERIFY(opened);
        QVERIFY(!FileContent::read(at(QStringLiteral("empty"))).isNull());
        QVERIFY(FileContent::read(at(QStringLiteral("missing")), &opened).isNull());
        QVERIFY(!opened);
        QVERIFY(FileContent::read(tree->path()).isNull()); // a directory
    }

    void versionFromEtc()
    {
        write(QStringLiteral("etc/os-release"), "NAME=\"Vireo\"\nVERSION_ID=\"4.6.0.15\"\n");
        mountTree();
        QCOMPARE(AboutSettings().softwareVersionId(), QStringLiteral("4.6.0.15"));
    }

    // /etc/os-release is usually a link to the vendor file.
    void versionThroughEtcLink()
    {
        makeDir(QStringLiteral("etc"));
        QVERIFY(QFile::link(QStringLiteral("../usr/lib/os-release"), at(QStringLiteral("etc/os-release"))));
        mountTree();
        QCOMPARE(AboutSettings().softwareVersionId(), QStringLiteral("99"));
    }

    void versionFallsBackToVendorFile()
    {
        mountTree();
        QCOMPARE(AboutSettings().softwareVersionId(), QStringLiteral("99"));
    }

    void versionFromAnUnreadableEtcFallsBack()
    {
        makeDir(QStringLiteral("etc/os-release"));
        mountTree();
        QCOMPARE(AboutSettings().softwareVersionId(), QStringLiteral("99"));
    }

    void etcWithoutVersionDoesNotFallBack()
    {
        write(QStringLiteral("etc/os-release"), "NAME=Vireo\n");
        mountTree();
        QCOMPARE(AboutSettings().softwareVersionId(), QString());
    }

    void versionWithoutAnyFile()
    {
        mountTree();
        hideVendorOsRelease();
        QCOMPARE(AboutSettings().softwareVersionId(), QString());
    }

    void versionIsReadLive()
    {
        write(QStringLiteral("etc/os-release"), "VERSION_ID=1\n");
        mountTree();
        AboutSettings about;
        QCOMPARE(about.softwareVersionId(), QStringLiteral("1"));
        write(QStringLiteral("etc/os-release"), "VERSION_ID=2\n");
        QCOMPARE(about.softwareVersionId(), QStringLiteral("2"));
    }

    void serialFromDeviceTree()
    {
        write(QStringLiteral("firmware/devicetree/base/serial-number"), nul("a1b2c3"));
        write(QStringLiteral("class/dmi/id/product_serial"), "DMI-1\n");
        mountTree();
        QCOMPARE(AboutSettings().serial(), QStringLiteral("a1b2c3"));
    }

    void serialFromDmi()
    {
        write(QStringLiteral("class/dmi/id/product_serial"), "  DMI-1 \n");
        mountTree();
        QCOMPARE(AboutSettings().serial(), QStringLiteral("DMI-1"));
    }

    void blankDeviceTreeSerialFallsBack()
    {
        write(QStringLiteral("firmware/devicetree/base/serial-number"), nul(""));
        write(QStringLiteral("class/dmi/id/product_serial"), "DMI-2\n");
        mountTree();
        QCOMPARE(AboutSettings().serial(), QStringLiteral("DMI-2"));
    }

    void noSerial()
    {
        mountTree();
        QCOMPARE(AboutSettings().serial(), QString());
    }

    void modelFromDeviceTree()
    {
        write(QStringLiteral("firmware/devicetree/base/model"), nul("Acme Phone X"));
        write(QStringLiteral("class/dmi/id/sys_vendor"), "QEMU\n");
        mountTree();
        QCOMPARE(DeviceInfo().prettyName(), QStringLiteral("Acme Phone X"));
    }

    void modelFromDmi_data()
    {
        QTest::addColumn<QByteArray>("vendor");
        QTest::addColumn<QByteArray>("product");
        QTest::addColumn<QString>("name");
        QTest::newRow("both") << QByteArray("QEMU\n") << QByteArray("Standard PC (Q35 + ICH9, 2009)\n")
                              << "QEMU Standard PC (Q35 + ICH9, 2009)";
        QTest::newRow("vendor only") << QByteArray("Acme\n") << QByteArray() << "Acme";
        QTest::newRow("product only") << QByteArray() << QByteArray("Box 1\n") << "Box 1";
        QTest::newRow("blank vendor") << QByteArray(" \n") << QByteArray("Box 1\n") << "Box 1";
        QTest::newRow("neither") << QByteArray() << QByteArray() << "";
    }

    void modelFromDmi()
    {
        QFETCH(QByteArray, vendor);
        QFETCH(QByteArray, product);
        QFETCH(QString, name);
        if (!vendor.isNull())
            write(QStringLiteral("class/dmi/id/sys_vendor"), vendor);
        if (!product.isNull())
            write(QStringLiteral("class/dmi/id/product_name"), product);
        mountTree();
        QCOMPARE(DeviceInfo().prettyName(), name);
    }

    void radiosFromDeviceClasses()
    {
        makeDir(QStringLiteral("class/bluetooth/hci0"));
        makeDir(QStringLiteral("class/gnss"));
        // Class entries are links into /sys/devices; a dangling one still
        // names a registered device.
        makeDir(QStringLiteral("class/ieee80211"));
        QVERIFY(QFile::link(QStringLiteral("../../devices/nowhere/phy0"), at(QStringLiteral("class/ieee80211/phy0"))));
        mountTree();
        DeviceInfo device;
        QVERIFY(device.hasFeature(DeviceInfo::FeatureBluetooth));
        QVERIFY(!device.hasFeature(DeviceInfo::FeatureGNSS));
        QVERIFY(device.hasFeature(DeviceInfo::FeatureWlan));
        QVERIFY(!device.hasFeature(DeviceInfo::FeatureNFC)); // no class directory at all
        QVERIFY(!device.hasFeature(DeviceInfo::Feature(0)));

        // Radios come and go (USB adapters, drivers loaded later).
        write(QStringLiteral("class/nfc/nfc0/name"), "nfc0\n");
        QVERIFY(device.hasFeature(DeviceInfo::FeatureNFC));
        QVERIFY(QDir(at(QStringLiteral("class/bluetooth"))).removeRecursively());
        QVERIFY(!device.hasFeature(DeviceInfo::FeatureBluetooth));
    }

    void featureValues()
    {
        QCOMPARE(int(DeviceInfo::FeatureBluetooth), 7);
        QCOMPARE(int(DeviceInfo::FeatureGNSS), 14);
        QCOMPARE(int(DeviceInfo::FeatureWlan), 38);
        QCOMPARE(int(DeviceInfo::FeatureNFC), 39);
    }

    void batteryOfTheFirstBatteryInNameOrder()
    {
        addSupply(QStringLiteral("AC"), "Mains\n");
        addSupply(QStringLiteral("BAT1"), "Battery\n", "40\n");
        addSupply(QStringLiteral("BAT0"), "Battery\n", "75\n");
        addSupply(QStringLiteral("A-ups"), "UPS\n", "10\n");
        mountTree();
        QCOMPARE(BatteryStatus().chargePercentage(), 75);
    }

    void batteryNameOrderIsNotNumeric()
    {
        addSupply(QStringLiteral("BAT2"), "Battery\n", "20\n");
        addSupply(QStringLiteral("BAT10"), "Battery\n", "100\n");
        mountTree();
        QCOMPARE(BatteryStatus().chargePercentage(), 100);
    }

    void batteryWithoutCapacityIsSkipped()
    {
        addSupply(QStringLiteral("BAT0"), "Battery\n");
        addSupply(QStringLiteral("BAT1"), "Battery\n", "40\n");
        mountTree();
        QCOMPARE(BatteryStatus().chargePercentage(), 40);
    }

    void batteryIsReadLive()
    {
        addSupply(QStringLiteral("battery"), "Battery\n", "50\n");
        mountTree();
        BatteryStatus battery;
        QCOMPARE(battery.chargePercentage(), 50);
        write(QStringLiteral("class/power_supply/battery/capacity"), "49\n");
        QCOMPARE(battery.chargePercentage(), 49);
    }

    void noBattery()
    {
        addSupply(QStringLiteral("AC"), "Mains\n", "100\n");
        mountTree();
        QCOMPARE(BatteryStatus().chargePercentage(), 0);
    }

    void noPowerSupplyClass()
    {
        mountTree();
        QCOMPARE(BatteryStatus().chargePercentage(), 0);
    }

    void badCapacity_data()
    {
        QTest::addColumn<QByteArray>("capacity");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("text") << QByteArray("full\n");
        QTest::newRow("negative") << QByteArray("-1\n");
        QTest::newRow("too big") << QByteArray("101\n");
        QTest::newRow("binary") << QByteArray("\x00\xff\x01", 3);
        QTest::newRow("huge") << QByteArray(1 << 20, '5');
    }

    void badCapacity()
    {
        QFETCH(QByteArray, capacity);
        addSupply(QStringLiteral("BAT0"), "Battery\n", capacity);
        addSupply(QStringLiteral("BAT1"), "Battery\n", "60\n");
        mountTree();
        QCOMPARE(BatteryStatus().chargePercentage(), 0);
    }
};

QTEST_GUILESS_MAIN(TestPlatform)
#include "tst_platform.moc"
