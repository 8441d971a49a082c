// SPDX-License-Identifier: BSD-3-Clause
// PartitionManager on recorded devices (umockdev, events included) and a
// fixture mount table that the test rewrites: which partitions it lists, what
// it says about them, and which signals each change gives; and, with a medium
// that stalls (the file-system probe's test hook), on which thread it scans.
#include "umockdevtestbed.h"

#include <partitionmanager.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

const char *const EmmcDisk = UmockdevTestbed::EmmcDisk;
// Long enough for queued udev events to be handled; only used to show that
// nothing more arrives.
constexpr int SettleMilliseconds = 300;
// How long a scan may take to reach the stalled medium, in a loaded
// sanitizer build.
constexpr int StallMilliseconds = 10000;
// A probe held longer than this is let go by the gate itself (see StallGate).
constexpr int GateWatchdogMilliseconds = 30000;
// What the deletion of a manager may take; a manager that waited for its
// stalled scan would take until the gate's watchdog.
constexpr int DeletionMilliseconds = 2000;
// The name the manager gives its scan thread.
const QByteArray ScanThreadName = QByteArrayLiteral("partitionscan");

// A mount table line. Mount paths that exist here carry the device number of
// the file system that is really there, as the kernel's table would: the
// manager checks it before measuring. The recorded devices are found by name.
QByteArray mountLine(int id, const QString &target, const char *source, const char *type)
{
    struct stat st = {};
    const bool exists = ::stat(QFile::encodeName(target).constData(), &st) == 0;
    const QByteArray devno = exists ? QByteArray::number(major(st.st_dev)) + ':' + QByteArray::number(minor(st.st_dev))
                                    : QByteArray("179:99");
    return QByteArray::number(id) + " 1 " + devno + " / " + QFile::encodeName(target) + " rw,relatime - " + type + ' '
            + source + " rw\n";
}

// The internal eMMC: system, user and an internal data partition (whose mount
// path does not exist here).
QByteArray baseTable()
{
    return "22 1 0:21 / /proc rw,relatime - proc proc rw\n" + mountLine(27, "/", "/dev/mmcblk0p1", "ext4")
            + mountLine(30, "/home", "/dev/mmcblk0p2", "ext4")
            + mountLine(31, "/media/data", "/dev/mmcblk0p3", "ext4");
}

QStringList names(const QVector<Partition> &partitions)
{
    QStringList out;
    for (const Partition &p : partitions)
        out << p.deviceName();
    return out;
}

Partition argument(const QSignalSpy &spy, int index)
{
    return spy.at(index).at(0).value<Partition>();
}

bool scanThreadRuns()
{
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(task + QStringLiteral("/comm")));
        if (comm.open(QIODevice::ReadOnly) && comm.readAll().trimmed() == ScanThreadName)
            return true;
    }
    return false;
}

// The test's end of the stalled medium: a FIFO that the manager's probe of the
// stalled mount path opens and reads to its end (see filesystemprobe.h). hold()
// waits, on a thread of its own, for a probe to arrive, and keeps it there
// until release(). A probe held longer than the watchdog allows is let go all
// the same and the gate says so: a manager that probed on the test's own
// thread would otherwise hang the test instead of failing it.
class StallGate
{
public:
    explicit StallGate(const QString &path)
        : m_path(QFile::encodeName(path))
    {
    }
    ~StallGate() { release(); }

    void hold()
    {
        release();
        m_released = false;
        m_watchdogFired = false;
        m_thread = std::thread([this] { run(); });
    }

    bool isHolding() const { return m_holding; }
    bool watchdogFired() const { return m_watchdogFired; }

    void release()
    {
        if (!m_thread.joinable())
            return;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_released = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }

private:
    void run()
    {
        using Clock = std::chrono::steady_clock;
        const auto deadline = Clock::now() + std::chrono::milliseconds(GateWatchdogMilliseconds);
        const auto retry = std::chrono::milliseconds(10);
        std::unique_lock<std::mutex> lock(m_mutex);
        int fd = -1;
        // Opening for writing without blocking fails (ENXIO) until a probe
        // has the FIFO open for reading.
        while (!m_released && (fd = ::open(m_path.constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) < 0) {
            if (Clock::now() >= deadline) {
                m_watchdogFired = true;
                return;
            }
            m_wake.wait_for(lock, retry);
        }
        if (fd < 0)
            return;
        m_holding = true;
        if (!m_wake.wait_until(lock, deadline, [this] { return m_released; }))
            m_watchdogFired = true;
        ::close(fd);
        m_holding = false;
    }

    const QByteArray m_path;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_released = false;
    std::atomic<bool> m_holding{false};
    std::atomic<bool> m_watchdogFired{false};
};

} // namespace

class TestPartitionManager : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(UmockdevTestbed::preloaded(), "run with umockdev's preload library");
        QVERIFY(m_dir.isValid());
        m_tablePath = m_dir.filePath("mountinfo");
        // A mount path of its own for the stalled medium, so that the other
        // tests' mounts never stall. The probe reads these at its first call,
        // which the first manager makes.
        QVERIFY(m_stalledDir.isValid());
        m_gatePath = m_dir.filePath("gate");
        QCOMPARE(::mkfifo(QFile::encodeName(m_gatePath).constData(), 0600), 0);
        qputenv("PLINTHD_TEST_STALL_MOUNT", QFile::encodeName(m_stalledDir.path()));
        qputenv("PLINTHD_TEST_STALL_GATE", QFile::encodeName(m_gatePath));
    }

    void init()
    {
        m_testbed = new UmockdevTestbed;
        QVERIFY(m_testbed->add("emmc"));
        writeTable(baseTable());
        m_manager = new PartitionManager(m_tablePath);
        m_added = new QSignalSpy(m_manager, &PartitionManager::partitionAdded);
        m_storage = new QSignalSpy(m_manager, &PartitionManager::storageAdded);
        m_removed = new QSignalSpy(m_manager, &PartitionManager::partitionRemoved);
    }

    void cleanup()
    {
        cleanupSpies();
        delete m_manager;
        delete m_testbed;
    }

    void internalPartitionsByType()
    {
        QCOMPARE(names(m_manager->partitions(Partition::System)), QStringList({"mmcblk0p1"}));
        QCOMPARE(names(m_manager->partitions(Partition::User)), QStringList({"mmcblk0p2"}));
        QCOMPARE(names(m_manager->partitions(Partition::Mass)), QStringList({"mmcblk0p3"}));
        QCOMPARE(m_manager->partitions(Partition::Mass).value(0).status(), Partition::Inaccessible);
        QCOMPARE(names(m_manager->partitions(Partition::System | Partition::User | Partition::Mass)),
                 QStringList({"mmcblk0p1", "mmcblk0p2", "mmcblk0p3"}));
        QVERIFY(m_manager->partitions(Partition::External).isEmpty());

        const Partition root = m_manager->partitions(Partition::System).value(0);
        QCOMPARE(root.deviceLabel(), QStringLiteral("root"));
        QCOMPARE(root.partitionLabel(), QStringLiteral("system"));
        QCOMPARE(root.filesystemType(), QStringLiteral("ext4"));
        QCOMPARE(root.mountPath(), QStringLiteral("/"));
        QCOMPARE(root.status(), Partition::Mounted);
        QVERIFY(root.bytesTotal() > 0);
        QCOMPARE(root.drive().value("model").toString(), QStringLiteral("BJTD4R"));
        QCOMPARE(root.drive().value("vendor").toString(), QString());
        QCOMPARE(root.drive().value("connectionBus").toInt(), int(Partition::SDBus));
    }

    void cardArrivesMountsUnmountsAndLeaves()
    {
        QVERIFY(m_testbed->plug("sdcard"));
        QTRY_COMPARE(m_added->count(), 2);
        QCOMPARE(m_storage->count(), 0);
        const Partition first = argument(*m_added, 0);
        QCOMPARE(first.deviceName(), QStringLiteral("mmcblk1p1"));
        QCOMPARE(argument(*m_added, 1).deviceName(), QStringLiteral("mmcblk1p2"));
        QCOMPARE(first.storageType(), Partition::StorageTypes(Partition::External));
        QCOMPARE(first.status(), Partition::Unmounted);
        QCOMPARE(first.deviceLabel(), QStringLiteral("PHOTOS 2024"));
        QCOMPARE(first.filesystemType(), QStringLiteral("vfat"));
        QCOMPARE(first.bytesTotal(), qint64(20480000) * 512);
        QCOMPARE(first.drive().value("model").toString(), QStringLiteral("SD16G"));
        QCOMPARE(first.drive().value("connectionBus").toInt(), int(Partition::SDBus));
        QCOMPARE(names(m_manager->partitions(Partition::External)), QStringList({"mmcblk1p1", "mmcblk1p2"}));
        m_added->clear();

        // Mounted: the table says so, and the next udev event brings the rescan.
        writeTable(baseTable() + mountLine(40, m_dir.path(), "/dev/mmcblk1p1", "vfat"));
        m_testbed->uevent(EmmcDisk, "change");
        QTRY_COMPARE(m_storage->count(), 1);
        QCOMPARE(argument(*m_storage, 0).deviceName(), QStringLiteral("mmcblk1p1"));
        QCOMPARE(argument(*m_storage, 0).status(), Partition::Mounted);
        QCOMPARE(argument(*m_storage, 0).mountPath(), m_dir.path());
        QCOMPARE(m_added->count(), 0);

        // Unmounted: a bare partition again.
        writeTable(baseTable());
        m_testbed->uevent(EmmcDisk, "change");
        QTRY_COMPARE(m_added->count(), 1);
        QCOMPARE(argument(*m_added, 0).deviceName(), QStringLiteral("mmcblk1p1"));
        QCOMPARE(argument(*m_added, 0).status(), Partition::Unmounted);
        QCOMPARE(m_storage->count(), 1);

        m_testbed->unplug("sdcard", EmmcDisk);
        QTRY_COMPARE(m_removed->count(), 2);
        QCOMPARE(argument(*m_removed, 0).deviceName(), QStringLiteral("mmcblk1p1"));
        QCOMPARE(argument(*m_removed, 1).deviceName(), QStringLiteral("mmcblk1p2"));
        QVERIFY(m_manager->partitions(Partition::External).isEmpty());
    }

    void usbStickWithoutVendor()
    {
        QVERIFY(m_testbed->plug("usbstick"));
        QTRY_COMPARE(m_added->count(), 1);
        const Partition stick = argument(*m_added, 0);
        QCOMPARE(stick.deviceName(), QStringLiteral("sdb1"));
        QCOMPARE(stick.storageType(), Partition::StorageTypes(Partition::External));
        QCOMPARE(stick.deviceLabel(), QStringLiteral("STICK"));
        QCOMPARE(stick.partitionLabel(), QStringLiteral("Data partition"));
        QCOMPARE(stick.filesystemType(), QStringLiteral("exfat"));
        QCOMPARE(stick.drive().value("vendor").toString(), QString());
        QCOMPARE(stick.drive().value("model").toString(), QStringLiteral("Flash Disk"));
        QCOMPARE(stick.drive().value("connectionBus").toInt(), int(Partition::USBBus));
    }

    // udev announces the disk before it has probed the partitions; the first
    // news of the stick must already carry the label.
    void partitionWaitsForUdevProbe()
    {
        QVERIFY(m_testbed->plugUnprobed("usbstick"));
        m_testbed->uevent(EmmcDisk, "change");
        QTest::qWait(SettleMilliseconds);
        QCOMPARE(m_added->count(), 0);
        QVERIFY(m_manager->partitions(Partition::External).isEmpty());

        m_testbed->finishProbe("usbstick");
        QTRY_COMPARE(m_added->count(), 1);
        const Partition stick = argument(*m_added, 0);
        QCOMPARE(stick.deviceName(), QStringLiteral("sdb1"));
        QCOMPARE(stick.deviceLabel(), QStringLiteral("STICK"));
        QCOMPARE(stick.filesystemType(), QStringLiteral("exfat"));
        QCOMPARE(stick.partitionLabel(), QStringLiteral("Data partition"));
        QCOMPARE(names(m_manager->partitions(Partition::External)), QStringList({"sdb1"}));
        QTest::qWait(SettleMilliseconds);
        QCOMPARE(m_added->count(), 1);
    }

    // A partition udev never probes (the probe failed, or no udev runs) is still
    // listed once it is mounted.
    void mountedUnprobedPartitionIsListed()
    {
        QVERIFY(m_testbed->plugUnprobed("usbstick"));
        writeTable(baseTable() + mountLine(40, m_dir.path(), "/dev/sdb1", "exfat"));
        m_testbed->uevent(EmmcDisk, "change");
        QTRY_COMPARE(m_storage->count(), 1);
        QCOMPARE(argument(*m_storage, 0).deviceName(), QStringLiteral("sdb1"));
        QCOMPARE(argument(*m_storage, 0).status(), Partition::Mounted);
    }

    void refreshDoesNotNotify()
    {
        QVERIFY(m_testbed->plug("sdcard"));
        QTRY_COMPARE(m_added->count(), 2);
        m_added->clear();

        writeTable(baseTable() + mountLine(40, m_dir.path(), "/dev/mmcblk1p1", "vfat"));
        m_manager->refresh();
        QCOMPARE(names(m_manager->partitions(Partition::External)), QStringList({"mmcblk1p1", "mmcblk1p2"}));
        QCOMPARE(m_manager->partitions(Partition::External).value(0).status(), Partition::Mounted);
        QTest::qWait(100);
        QCOMPARE(m_added->count() + m_storage->count() + m_removed->count(), 0);

        // The next event announces what the refresh already saw.
        m_testbed->uevent(EmmcDisk, "change");
        QTRY_COMPARE(m_storage->count(), 1);
        QCOMPARE(m_added->count(), 0);
    }

    // On the kernel's mount table the layout is kept between refreshes, and
    // every udev event queued before a refresh is in what it reads: the
    // manager's own thread has not looked at them yet.
    void refreshReadsWhatUdevAnnouncedBeforeIt()
    {
        PartitionManager manager;
        const std::string card = UmockdevTestbed::blockDevicePaths("sdcard").at(1);
        QVERIFY(m_testbed->plug("sdcard"));
        manager.refresh();
        QCOMPARE(names(manager.partitions(Partition::External)), QStringList({"mmcblk1p1", "mmcblk1p2"}));
        QCOMPARE(manager.partitions(Partition::External).value(0).deviceLabel(), QStringLiteral("PHOTOS 2024"));

        m_testbed->setProperty(card, "ID_FS_LABEL_ENC", "HOLIDAYS");
        m_testbed->uevent(card, "change");
        manager.refresh();
        QCOMPARE(manager.partitions(Partition::External).value(0).deviceLabel(), QStringLiteral("HOLIDAYS"));

        m_testbed->unplug("sdcard", EmmcDisk);
        manager.refresh();
        QVERIFY(manager.partitions(Partition::External).isEmpty());
    }

    // While a medium stalls the scan, the manager's thread goes on; the events
    // that come meanwhile make one more scan, and the signals follow each
    // scan in order.
    void scanStallsOnItsOwnThread()
    {
        skipWithoutStallHook();
        QVERIFY(m_testbed->plug("sdcard"));
        QTRY_COMPARE(m_added->count(), 2);
        m_added->clear();

        StallGate gate(m_gatePath);
        gate.hold();
        writeTable(baseTable() + mountLine(40, m_stalledDir.path(), "/dev/mmcblk1p1", "vfat"));
        m_testbed->uevent(EmmcDisk, "change");
        // The wait runs this thread's event loop: a scan on this thread would
        // be stuck in the probe until the watchdog.
        QTRY_VERIFY_WITH_TIMEOUT(gate.isHolding(), StallMilliseconds);
        QVERIFY(scanThreadRuns());
        QVERIFY(!gate.watchdogFired());

        // More changes while the scan is held: a second mount and a few events.
        writeTable(baseTable() + mountLine(40, m_stalledDir.path(), "/dev/mmcblk1p1", "vfat")
                   + mountLine(41, m_dir.path(), "/dev/mmcblk1p2", "ext4"));
        for (int i = 0; i < 3; ++i)
            m_testbed->uevent(EmmcDisk, "change");
        QTest::qWait(SettleMilliseconds);
        QCOMPARE(m_added->count() + m_storage->count() + m_removed->count(), 0);
        // What a query asks for meanwhile is the picture before the scan.
        QCOMPARE(m_manager->partitions(Partition::External).value(0).status(), Partition::Unmounted);

        gate.release();
        QVERIFY(!gate.watchdogFired());
        // The held scan read the table before the second mount.
        QTRY_COMPARE(m_storage->count(), 1);
        QCOMPARE(argument(*m_storage, 0).deviceName(), QStringLiteral("mmcblk1p1"));
        QCOMPARE(argument(*m_storage, 0).mountPath(), m_stalledDir.path());

        // One more scan for everything that came while it was held; it stalls
        // on the first mount again.
        gate.hold();
        QTRY_VERIFY_WITH_TIMEOUT(gate.isHolding(), StallMilliseconds);
        QCOMPARE(m_storage->count(), 1);
        gate.release();
        QTRY_COMPARE(m_storage->count(), 2);
        QCOMPARE(argument(*m_storage, 1).deviceName(), QStringLiteral("mmcblk1p2"));
        QCOMPARE(argument(*m_storage, 1).mountPath(), m_dir.path());

        // And no third.
        gate.hold();
        QTest::qWait(SettleMilliseconds);
        QVERIFY(!gate.isHolding());
        gate.release();
        QVERIFY(!gate.watchdogFired());
        QCOMPARE(m_added->count() + m_removed->count(), 0);
        QCOMPARE(m_storage->count(), 2);
        QTRY_VERIFY(!scanThreadRuns());
    }

    // The manager goes while its scan is held: the deletion waits for nothing,
    // and the scan, once let go, ends without touching what went.
    void deletedWhileScanning()
    {
        skipWithoutStallHook();
        StallGate gate(m_gatePath);
        gate.hold();
        writeTable(baseTable() + mountLine(40, m_stalledDir.path(), "/dev/mmcblk1p1", "vfat"));
        QVERIFY(m_testbed->plug("sdcard"));
        QTRY_VERIFY_WITH_TIMEOUT(gate.isHolding(), StallMilliseconds);
        QVERIFY(scanThreadRuns());

        QElapsedTimer deletion;
        deletion.start();
        cleanupSpies();
        delete m_manager;
        m_manager = nullptr;
        QVERIFY(deletion.elapsed() < DeletionMilliseconds);

        gate.release();
        QVERIFY(!gate.watchdogFired());
        QTRY_VERIFY(!scanThreadRuns());
        // Anything the scan had posted would be delivered now.
        QTest::qWait(SettleMilliseconds);
    }

private:
    static void skipWithoutStallHook()
    {
#ifndef PLINTHD_TEST_SEAMS
        QSKIP("built without the test hooks (PLINTHD_TEST_SEAMS)");
#endif
    }

    void cleanupSpies()
    {
        delete m_added;
        delete m_storage;
        delete m_removed;
        m_added = m_storage = m_removed = nullptr;
    }

    void writeTable(const QByteArray &contents)
    {
        QFile file(m_tablePath);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        QCOMPARE(file.write(contents), qint64(contents.size()));
    }

    QTemporaryDir m_dir;
    QTemporaryDir m_stalledDir;
    QString m_tablePath;
    QString m_gatePath;
    UmockdevTestbed *m_testbed = nullptr;
    PartitionManager *m_manager = nullptr;
    QSignalSpy *m_added = nullptr;
    QSignalSpy *m_storage = nullptr;
    QSignalSpy *m_removed = nullptr;
};

QTEST_GUILESS_MAIN(TestPartitionManager)
#include "tst_partitionmanager.moc"
