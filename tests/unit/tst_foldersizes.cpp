// SPDX-License-Identifier: BSD-3-Clause
// The folders kept between walks (FolderSizes) against the plain QDir walk of
// referencewalk.h, which keeps nothing: after seeded random changes of every
// kind, and in each case where notices cannot vouch for a tree (lost notices,
// no room for more watches, a mount inside the tree, a file system that may
// change unseen). In the private mount namespace CTest runs it in (needs
// root): the trees live on a tmpfs of the test's own.
//
// PLINTHD_TEST_SEED replays a run of the random test; the seed is printed.
#include "foldersizes.h"
#include "folderwatches.h"
#include "mountnamespace.h"
#include "mountpoints.h"
#include "referencewalk.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Owners of the random trees; QFileInfo's owner of what cannot be stat'ed
// (a dangling link) is a fourth one to ask for.
const uint Owners[] = {0, 1000, 1001};
const uint UnknownOwner = uint(-2);

QByteArray native(const QString &path)
{
    return QFile::encodeName(path);
}

bool writeBytes(const QString &path, qint64 size, int flags)
{
    const int fd = ::open(native(path).constData(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0644);
    if (fd < 0)
        return false;
    const QByteArray bytes(int(size), 'x');
    const bool ok = ::write(fd, bytes.constData(), std::size_t(bytes.size())) == ssize_t(bytes.size());
    ::close(fd);
    return ok;
}

// The random changes: each picks what it changes from what the tree holds
// at that moment, made the way programs make them (write, truncate, rename,
// chown, ...), so that every kind of notice comes.
class RandomChanges
{
public:
    RandomChanges(const QString &root, const QString &outside, quint32 seed)
        : m_root(root), m_outside(outside), m_random(seed)
    {
    }

    // One change; returns what it did, for the failure message.
    QString apply()
    {
        refresh();
        const int kind = pick(17);
        switch (kind) {
        case 0:
        case 1: { // a new file
            const QString path = newName(folder());
            writeBytes(path, pick(5000), O_TRUNC);
            chownTo(path, owner());
            return "create " + path;
        }
        case 2: { // appended to
            const QString path = file();
            writeBytes(path, 1 + pick(3000), O_APPEND);
            return "append " + path;
        }
        case 3: { // truncated
            const QString path = file();
            ::truncate(native(path).constData(), pick(2000));
            return "truncate " + path;
        }
        case 4: { // deleted
            const QString path = file();
            ::unlink(native(path).constData());
            return "delete " + path;
        }
        case 5: { // renamed, maybe into another folder
            const QString from = file();
            const QString to = newName(folder());
            ::rename(native(from).constData(), native(to).constData());
            return "rename " + from + " " + to;
        }
        case 6: { // a new folder, maybe with files
            const QString path = newName(folder());
            ::mkdir(native(path).constData(), 0755);
            chownTo(path, owner());
            for (int i = pick(4); i > 0; --i) {
                const QString inside = newName(path);
                writeBytes(inside, pick(4000), O_TRUNC);
                chownTo(inside, owner());
            }
            return "mkdir " + path;
        }
        case 7: { // a subtree removed
            const QString path = folder();
            if (path == m_root)
                return QString("nothing");
            QDir(path).removeRecursively();
            return "rmtree " + path;
        }
        case 8: { // a folder moved, maybe below another
            const QString from = folder();
            const QString into = folder();
            if (from == m_root || into.startsWith(from))
                return QString("nothing");
            const QString to = newName(into);
            ::rename(native(from).constData(), native(to).constData());
            return "move " + from + " " + to;
        }
        case 9: { // a file or folder given to another owner
            const QString path = pick(2) ? file() : folder();
            if (path == m_root)
                return QString("nothing");
            chownTo(path, owner());
            return "chown " + path;
        }
        case 10: { // modes changed: a notice that changes no figure
            const QString path = pick(2) ? file() : folder();
            ::chmod(native(path).constData(), pick(2) ? 0700 : 0755);
            return "chmod " + path;
        }
        case 11: { // a link made or replaced: to a file, a folder, or nothing
            const QString path = pick(3) == 0 && !m_links.isEmpty() ? link() : newName(folder());
            const QStringList targets = {file(), folder(), outsideFile(), m_root + "/gone"};
            const QString target = targets.at(pick(targets.size()));
            const QString temporary = path + ".new";
            ::symlink(native(target).constData(), native(temporary).constData());
            ::rename(native(temporary).constData(), native(path).constData());
            return "link " + path + " -> " + target;
        }
        case 12: { // what a link points to, outside the tree, changes owner
            const QString path = outsideFile();
            chownTo(path, owner());
            return "chown outside " + path;
        }
        case 13: { // a file with a second name outside the tree
            const QString outside = outsideFile();
            const QString inside = newName(folder());
            ::link(native(outside).constData(), native(inside).constData());
            return "hard link " + inside + " = " + outside;
        }
        case 14: { // written and given away through that other name
            const QString path = outsideFile();
            if (pick(2))
                writeBytes(path, 1 + pick(3000), O_APPEND);
            else
                chownTo(path, owner());
            return "through the outside name " + path;
        }
        case 15: { // a file system mounted on a folder, or one unmounted
            if (!m_mounted.isEmpty()) {
                const QString path = m_mounted.takeLast();
                QProcess::execute("umount", {path});
                return "umount " + path;
            }
            const QString path = folder();
            if (path == m_root)
                return QString("nothing");
            if (!MountNamespace::mount({"-t", "tmpfs", "-o", "size=1m", "tmpfs", path}))
                return QString("nothing");
            m_mounted.append(path);
            const QString inside = path + "/on-tmpfs";
            writeBytes(inside, 1 + pick(3000), O_TRUNC);
            chownTo(inside, owner());
            return "mount tmpfs on " + path;
        }
        default: { // several changes in a row
            QStringList done;
            for (int i = 2 + pick(4); i > 0; --i)
                done << apply();
            return done.join("; ");
        }
        }
    }

    QString randomFolder()
    {
        refresh();
        return folder();
    }

    uint randomOwner()
    {
        return pick(8) == 0 ? UnknownOwner : owner();
    }

    void unmountAll()
    {
        while (!m_mounted.isEmpty())
            QProcess::execute("umount", {m_mounted.takeLast()});
    }

private:
    int pick(int count) { return int(std::uniform_int_distribution<int>(0, count - 1)(m_random)); }
    uint owner() { return Owners[pick(3)]; }

    void refresh()
    {
        m_files.clear();
        m_folders = QStringList{m_root};
        m_links.clear();
        QDirIterator it(m_root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            const QFileInfo info = it.fileInfo();
            if (info.isSymLink())
                m_links << path;
            else if (info.isDir())
                m_folders << path;
            else
                m_files << path;
        }
    }

    QString folder() { return m_folders.at(pick(m_folders.size())); }
    QString file() { return m_files.isEmpty() ? newName(folder()) : m_files.at(pick(m_files.size())); }
    QString link() { return m_links.at(pick(m_links.size())); }
    QString newName(const QString &folder) { return folder + QStringLiteral("/e%1").arg(m_counter++); }

    QString outsideFile()
    {
        const QString path = m_outside + QStringLiteral("/o%1").arg(pick(6));
        if (!QFile::exists(path))
            writeBytes(path, pick(2000), O_TRUNC);
        return path;
    }

    static void chownTo(const QString &path, uint owner)
    {
        ::lchown(native(path).constData(), owner, owner);
    }

    const QString m_root;
    const QString m_outside;
    std::mt19937 m_random;
    int m_counter = 0;
    QStringList m_files;
    QStringList m_folders;
    QStringList m_links;
    QStringList m_mounted;
};

// How many notices the kernel queues for one watcher before it drops them.
int kernelQueueLength()
{
    QFile file("/proc/sys/fs/inotify/max_queued_events");
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toInt() : 0;
}

// Mounts left below `path` by a test that failed half-way (a folder moved
// with its mount) are taken away, deepest first.
void unmountBelow(const QString &path)
{
    QProcess::execute("sh", {"-c", QStringLiteral("findmnt -rn -o TARGET | grep '^%1/' | sort -r | xargs -r umount -l")
                                           .arg(path)});
}

quint32 testSeed()
{
    bool ok = false;
    const quint32 given = qEnvironmentVariable("PLINTHD_TEST_SEED").toUInt(&ok);
    return ok ? given : std::random_device()();
}

} // namespace

class TestFolderSizes : public QObject
{
    Q_OBJECT

    QTemporaryDir m_scratch;
    QString m_root;
    QString m_outside;

    // A tree of `folders` folders of `files` files each, owned by root.
    void makeTree(const QString &root, int folders, int files)
    {
        for (int f = 0; f < folders; ++f) {
            const QString folder = QStringLiteral("%1/d%2/s%3").arg(root).arg(f % 10).arg(f);
            QVERIFY(QDir().mkpath(folder));
            for (int i = 0; i < files; ++i)
                QVERIFY(writeBytes(QStringLiteral("%1/f%2").arg(folder).arg(i), i % 100, O_TRUNC));
        }
    }

    // Empty when the kept figure is what a fresh walk gives, else what differs.
    static QString difference(FolderSizes &folders, const QString &path, const QSet<QString> &excluded, uint owner,
                              const QString &after = QString())
    {
        const qint64 expected = referenceDirectorySize(path, excluded, owner);
        const qint64 kept = folders.size(path, excluded, owner);
        if (kept == expected)
            return QString();
        return QStringLiteral("%1 for uid %2 under %3 (excluding %4) after %5; a fresh walk: %6")
                .arg(kept)
                .arg(owner)
                .arg(path, QStringList(excluded.values()).join(' '), after)
                .arg(expected);
    }

private slots:
    // The kernel escapes blanks in paths; a mount made over another at the
    // same place is a change though the set of places is not.
    void mountTableChanges()
    {
        const QByteArray before = "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
                                  "30 22 0:5 / /home/with\\040blank rw - tmpfs tmpfs rw\n";
        const QByteArray stacked = before + "31 30 0:6 / /home/with\\040blank rw - tmpfs tmpfs rw\n";
        const std::vector<MountPoints::Mount> mounts = MountPoints::parse(before);
        QCOMPARE(int(mounts.size()), 2);
        QCOMPARE(QByteArray::fromStdString(mounts.at(1).point), QByteArray("/home/with blank"));
        QVERIFY(MountPoints::changed(mounts, MountPoints::parse(before)).empty());
        const std::vector<std::string> changed = MountPoints::changed(mounts, MountPoints::parse(stacked));
        QCOMPARE(int(changed.size()), 1);
        QCOMPARE(QByteArray::fromStdString(changed.front()), QByteArray("/home/with blank"));
    }

    void initTestCase()
    {
        if (!MountNamespace::inside())
            QSKIP("needs root and the mount namespace of its own that ctest gives it");
        QVERIFY(m_scratch.isValid());
        QVERIFY(MountNamespace::mount({"-t", "tmpfs", "tmpfs", m_scratch.path()}));
    }

    void init()
    {
        m_root = m_scratch.path() + "/tree";
        m_outside = m_scratch.path() + "/outside";
        unmountBelow(m_scratch.path());
        QProcess::execute("sh", {"-c", "rm -rf " + m_root + " " + m_outside});
        QVERIFY(QDir().mkpath(m_root));
        QVERIFY(QDir().mkpath(m_outside));
    }

    void randomChangesKeepEveryFigureExact()
    {
        const quint32 seed = testSeed();
        qInfo("PLINTHD_TEST_SEED=%u", seed);
        makeTree(m_root, 12, 8);
        FolderWatches watches(FolderWatches::DefaultMaxWatches);
        FolderSizes folders(watches);
        RandomChanges changes(m_root, m_outside, seed);
        std::mt19937 random(seed ^ 0x5eedu);
        QString last = "the start";
        for (int step = 0; step < 1500; ++step) {
            // The tree's own path, written as the daemon writes some (with a
            // separator at the end), or a folder within it.
            const QString path = random() % 4 == 0 ? m_root + "/" : random() % 3 == 0 ? changes.randomFolder() : m_root;
            QSet<QString> excluded;
            for (int i = int(random() % 3); i > 0; --i)
                excluded.insert(changes.randomFolder());
            QCOMPARE(difference(folders, path, excluded, changes.randomOwner(), last), QString());
            last = changes.apply();
            if (qEnvironmentVariableIsSet("PLINTHD_TEST_TRACE"))
                qInfo("%d: %s", step, qPrintable(last));
        }
        changes.unmountAll();
        QCOMPARE(difference(folders, m_root, {}, 0, "the last unmount"), QString());
    }

    void repeatedQueriesListNothingAgain()
    {
        makeTree(m_root, 30, 20);
        FolderWatches watches(FolderWatches::DefaultMaxWatches);
        FolderSizes folders(watches);
        QCOMPARE(difference(folders, m_root, {}, 0), QString());
        const quint64 listings = folders.statistics().listings;
        QVERIFY(listings >= 30);
        for (int i = 0; i < 10; ++i)
            QCOMPARE(difference(folders, m_root, {}, 0), QString());
        QCOMPARE(folders.statistics().listings, listings);
        // One file changed: its folder alone is listed again.
        QVERIFY(writeBytes(m_root + "/d3/s3/f1", 5000, O_APPEND));
        QCOMPARE(difference(folders, m_root, {}, 0), QString());
        QCOMPARE(folders.statistics().listings, listings + 1);
    }

    void lostNoticesDropEverything()
    {
        makeTree(m_root, 20, 5);
        FolderWatches watches(FolderWatches::DefaultMaxWatches);
        FolderSizes folders(watches);
        QCOMPARE(difference(folders, m_root, {}, 0), QString());
        const quint64 listings = folders.statistics().listings;
        // More notices than the kernel queues for one watcher: it drops the
        // rest and says so.
        const int queued = kernelQueueLength();
        QVERIFY(queued > 0);
        const QString crowd = m_root + "/d1/s1";
        for (int i = 0; i <= queued; ++i)
            QVERIFY(writeBytes(QStringLiteral("%1/n%2").arg(crowd).arg(i), 1, O_TRUNC));
        QCOMPARE(difference(folders, m_root, {}, 0, "an overflow"), QString());
        QVERIFY(folders.statistics().listings >= listings + 20);
    }

    void foldersPastTheWatchLimitAreWalkedEachTime()
    {
        makeTree(m_root, 20, 5);
        FolderWatches watches(4);
        FolderSizes folders(watches);
        QCOMPARE(difference(folders, m_root, {}, 0), QString());
        const FolderSizes::Statistics statistics = folders.statistics();
        QCOMPARE(statistics.watches, 4);
        QVERIFY(statistics.foldersWalkedEachTime > 0);
        for (int f = 0; f < 20; f += 3) {
            QVERIFY(writeBytes(QStringLiteral("%1/d%2/s%3/f0").arg(m_root).arg(f % 10).arg(f), 777, O_APPEND));
            QCOMPARE(difference(folders, m_root, {}, 0, "a write"), QString());
        }
        // Room again (the limit is shared): folders that waited are watched.
        QDir(m_root + "/d0").removeRecursively();
        QCOMPARE(difference(folders, m_root, {}, 0, "a removal"), QString());
        QVERIFY(folders.statistics().watches <= 4);
    }

    void noWatchesMeansAPlainWalk()
    {
        makeTree(m_root, 5, 5);
        FolderWatches none(0);
        FolderSizes folders(none);
        QCOMPARE(difference(folders, m_root, {}, 0), QString());
        QVERIFY(writeBytes(m_root + "/d1/s1/f1", 100, O_APPEND));
        QCOMPARE(difference(folders, m_root, {}, 0), QString());
        QCOMPARE(folders.statistics().trees, 0);
    }

    void aMountInsideATreeIsFollowed()
    {
        makeTree(m_root, 10, 5);
        FolderWatches watches(FolderWatches::DefaultMaxWatches);
        FolderSizes folders(watches);
        QCOMPARE(difference(folders, m_root, {}, 0), QString());
        const QString mountPoint = m_root + "/d2/s2";
        QVERIFY(MountNamespace::mount({"-t", "tmpfs", "-o", "size=1m", "tmpfs", mountPoint}));
        QCOMPARE(difference(folders, m_root, {}, 0, "a mount"), QString());
        QVERIFY(writeBytes(mountPoint + "/new", 1234, O_TRUNC));
        QCOMPARE(difference(folders, m_root, {}, 0, "a write on the mounted file system"), QString());
        QCOMPARE(QProcess::execute("umount", {mountPoint}), 0);
        QCOMPARE(difference(folders, m_root, {}, 0, "an unmount"), QString());
        QVERIFY(writeBytes(mountPoint + "/f1", 99, O_APPEND));
        QCOMPARE(difference(folders, m_root, {}, 0, "a write beneath"), QString());
    }

    void aFileSystemThatMayChangeUnseenIsWalkedEachTime()
    {
        if (QStandardPaths::findExecutable("bindfs").isEmpty())
            QSKIP("needs bindfs for a FUSE file system");
        makeTree(m_root, 4, 4);
        const QString source = m_outside + "/source";
        makeTree(source, 3, 3);
        const QString mountPoint = m_root + "/fuse";
        QVERIFY(QDir().mkpath(mountPoint));
        if (QProcess::execute("bindfs", {source, mountPoint}) != 0)
            QSKIP("FUSE file systems cannot be mounted here");
        FolderWatches watches(FolderWatches::DefaultMaxWatches);
        FolderSizes folders(watches);
        QCOMPARE(difference(folders, m_root, {}, 0), QString());
        QVERIFY(folders.statistics().foldersWalkedEachTime > 0);
        // Changed beneath FUSE, where no notice reaches the mounted side.
        QVERIFY(writeBytes(source + "/d1/s1/f1", 4321, O_APPEND));
        QCOMPARE(difference(folders, m_root, {}, 0, "a change behind FUSE"), QString());
        QCOMPARE(QProcess::execute("fusermount", {"-u", mountPoint}), 0);
        QCOMPARE(difference(folders, m_root, {}, 0, "an unmount"), QString());
    }

    // Queries of one path and of paths within it, from several threads (plain
    // ones: ThreadSanitizer sees their start and join), while a thread
    // changes the tree; at rest every figure is exact.
    void concurrentQueriesWhileTheTreeChanges()
    {
        makeTree(m_root, 20, 10);
        FolderWatches watches(FolderWatches::DefaultMaxWatches);
        FolderSizes folders(watches);
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                const QString path = t % 2 ? m_root : QStringLiteral("%1/d%2").arg(m_root).arg(t);
                while (!stop.load())
                    folders.size(path, {}, Owners[t % 3]);
            });
        }
        RandomChanges changes(m_root, m_outside, testSeed());
        for (int i = 0; i < 300; ++i)
            changes.apply();
        stop = true;
        for (std::thread &thread : threads)
            thread.join();
        changes.unmountAll();
        for (uint owner : Owners) {
            QCOMPARE(difference(folders, m_root, {}, owner, "concurrent changes"), QString());
            QCOMPARE(difference(folders, m_root + "/d1", {}, owner, "concurrent changes"), QString());
        }
    }

    // What is kept costs a small part of what a listing of every file would.
    void whatIsKeptIsSmall()
    {
        makeTree(m_root, 200, 100);
        FolderWatches watches(FolderWatches::DefaultMaxWatches);
        FolderSizes folders(watches);
        QCOMPARE(difference(folders, m_root, {}, 0), QString());
        const quint64 entries = 200 * 100 + 200 + 10;
        const quint64 perHundredThousand = folders.statistics().keptBytes * 100000 / entries;
        qInfo("kept: %llu bytes per 100,000 entries", perHundredThousand);
        QVERIFY(perHundredThousand <= 2 * 1024 * 1024);
    }
};

QTEST_GUILESS_MAIN(TestFolderSizes)

#include "tst_foldersizes.moc"
