// SPDX-License-Identifier: BSD-3-Clause
// What tells the partition manager that the partitions' layout must be read
// again, on the real kernel: a loop device that comes and goes, a mount and an
// unmount in the test's own mount namespace, and the kernel's events of other
// devices, which say nothing, until so many come unread that the queue
// overflows and what it dropped is not known. Needs root; the test runs in a
// private mount namespace (MOUNT_NAMESPACE), so its mounts reach nothing else.
#include "mountnamespace.h"

#include <layoutcache.h>
#include <layoutwatch.h>
#include <mounttable.h>
#include <udevmonitor.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// Another device's events, which the watch must let pass: the kernel sends
// one for every "change" written to a device's uevent file.
const char *const OtherDeviceEvents = "/sys/class/mem/null/uevent";
// Far more events of 200-odd bytes than the watch's queue holds.
constexpr int OverflowingEvents = 4000;
// A few, which it holds.
constexpr int FewEvents = 10;
constexpr qint64 LoopFileBytes = 4 * 1024 * 1024;

// The machine's other users make block devices come and go too; the watch is
// quiet once it has taken what they made.
bool settles(LayoutWatch &watch)
{
    for (int i = 0; i < 50; ++i) {
        if (!watch.changed())
            return true;
        QTest::qWait(20);
    }
    return false;
}

bool writeEvents(const char *path, int count)
{
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    bool ok = true;
    for (int i = 0; i < count && ok; ++i)
        ok = ::write(fd, "change", 6) == 6;
    ::close(fd);
    return ok;
}

// The program's output, or what it said on failing.
QString run(const QString &program, const QStringList &arguments, bool *ok)
{
    QProcess process;
    process.start(program, arguments);
    *ok = process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
    return QString::fromLocal8Bit(*ok ? process.readAllStandardOutput() : process.readAllStandardError()).trimmed();
}

QSet<QString> loopNames()
{
    const QStringList all = QDir(QStringLiteral("/sys/class/block")).entryList({QStringLiteral("loop*")},
                                                                                QDir::AllEntries | QDir::System);
    return QSet<QString>(all.cbegin(), all.cend());
}

} // namespace

class TestLayoutWatch : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (!MountNamespace::inside())
            QSKIP("needs root in a mount namespace of its own (run through ctest)");
        if (UdevMonitor(UdevMonitor::Source::Kernel).descriptor() < 0)
            QSKIP("the kernel's device events cannot be heard here");
        QVERIFY(m_dir.isValid());
        m_mountPoint = m_dir.filePath(QStringLiteral("mnt"));
        QVERIFY(QDir().mkpath(m_mountPoint));
        // An emulator may not carry the loop devices' calls.
        const QString failure = attachLoop();
        if (!failure.isEmpty())
            QSKIP(qPrintable(QStringLiteral("cannot attach a loop device here: ") + failure));
        detachLoop();
    }

    void cleanup()
    {
        detachLoop();
        if (m_mounted) {
            QProcess::execute(QStringLiteral("umount"), {m_mountPoint});
            m_mounted = false;
        }
    }

    void blockDeviceThatComesAndGoes()
    {
        LayoutWatch watch(true);
        QVERIFY(settles(watch));
        // The kernel queues its event before losetup's call returns.
        const QString failure = attachLoop();
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        QVERIFY(watch.changed());
        QVERIFY(settles(watch));
        detachLoop();
        QVERIFY(watch.changed());
    }

    void mountAndUnmount()
    {
        LayoutWatch watch(true);
        QVERIFY(settles(watch));
        QVERIFY(MountNamespace::mount({QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("watched"),
                                      m_mountPoint}));
        m_mounted = true;
        QVERIFY(watch.changed());
        QVERIFY(!watch.changed());
        QCOMPARE(QProcess::execute(QStringLiteral("umount"), {m_mountPoint}), 0);
        m_mounted = false;
        QVERIFY(watch.changed());
    }

    void otherDevicesSayNothingUntilTheyOverflowTheQueue()
    {
        LayoutWatch watch(true);
        QVERIFY(settles(watch));
        QVERIFY2(writeEvents(OtherDeviceEvents, FewEvents), OtherDeviceEvents);
        QVERIFY(settles(watch));
        // What overflowed is not known: it may have been a block device's.
        QVERIFY(writeEvents(OtherDeviceEvents, OverflowingEvents));
        QVERIFY(watch.changed());
        QVERIFY(settles(watch));
    }

    void fixtureTableIsNeverTrusted()
    {
        LayoutWatch watch(false);
        QVERIFY(watch.changed());
        QVERIFY(watch.changed());
    }

    // The layout is read again after an announcement, and only then: what
    // current() hands out is the very data it kept.
    void layoutIsKeptUntilSomethingIsAnnounced()
    {
        LayoutCache cache(MountTable::kernelTablePath());
        PartitionScanner::Layout kept;
        for (int i = 0; i < 50 && !sameData(kept, cache.current()); ++i)
            kept = cache.current();
        QVERIFY(!kept.isEmpty());
        QVERIFY(sameData(kept, cache.current()));

        QVERIFY(MountNamespace::mount({QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("watched"),
                                      m_mountPoint}));
        m_mounted = true;
        QVERIFY(!sameData(kept, cache.current()));
    }

private:
    static bool sameData(const PartitionScanner::Layout &a, const PartitionScanner::Layout &b)
    {
        if (a.size() != b.size() || a.isEmpty())
            return false;
        for (int i = 0; i < a.size(); ++i) {
            if (a.at(i).data.data() != b.at(i).data.data())
                return false;
        }
        return true;
    }

    // What went wrong, or nothing.
    QString attachLoop()
    {
        const QString file = m_dir.filePath(QStringLiteral("loop.img"));
        QFile image(file);
        if (!image.open(QIODevice::WriteOnly) || !image.resize(LoopFileBytes))
            return image.errorString();
        image.close();
        const QSet<QString> before = loopNames();
        bool ok = false;
        const QString node = run(QStringLiteral("losetup"), {QStringLiteral("--find"), QStringLiteral("--show"), file},
                                 &ok);
        if (!ok || !node.startsWith(QLatin1String("/dev/loop")))
            return QStringLiteral("losetup failed: ") + node;
        m_loop = node;
        m_loopMade = !before.contains(QFileInfo(m_loop).fileName());
        return QString();
    }

    // Loop devices belong to the whole machine: ours goes, and so does the
    // device node the kernel made for it, unless someone took it meanwhile.
    void detachLoop()
    {
        if (m_loop.isEmpty())
            return;
        bool ok = false;
        run(QStringLiteral("losetup"), {QStringLiteral("--detach"), m_loop}, &ok);
        QVERIFY2(ok, qPrintable(m_loop));
        if (m_loopMade) {
            const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
            if (control >= 0) {
                ::ioctl(control, LOOP_CTL_REMOVE, m_loop.mid(int(qstrlen("/dev/loop"))).toInt());
                ::close(control);
            }
        }
        m_loop.clear();
    }

    QTemporaryDir m_dir;
    QString m_mountPoint;
    QString m_loop;
    bool m_loopMade = false;
    bool m_mounted = false;
};

QTEST_GUILESS_MAIN(TestLayoutWatch)
#include "tst_layoutwatch.moc"
