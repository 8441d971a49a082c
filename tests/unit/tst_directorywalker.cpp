// SPDX-License-Identifier: BSD-3-Clause
// The daemon's directory walker against the plain QDir/QFileInfo walk, on
// generated trees: other owners (needs root for chown), links of every kind,
// hidden and undecodable names, exclusions, odd spellings of the top path and
// a tree far deeper than any path can reach.
#include "directorywalker.h"
#include "localfilenames.h"
#include "referencewalk.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <random>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isRoot()
{
    return ::geteuid() == 0;
}

// A scratch directory that goes away with everything in it, including names
// Qt cannot see and trees deeper than a path can name. Deep trees go to tmpfs
// when there is one: ext4 takes tens of seconds over 100,000 nested levels.
class Scratch
{
public:
    explicit Scratch(bool preferMemory = false)
        : m_dir((preferMemory && QFileInfo(QStringLiteral("/dev/shm")).isWritable() ? QStringLiteral("/dev/shm")
                                                                                    : QDir::tempPath())
                + QStringLiteral("/tst_directorywalker-XXXXXX"))
    {
        m_dir.setAutoRemove(false);
    }
    ~Scratch()
    {
        if (m_dir.isValid())
            QProcess::execute(QStringLiteral("rm"), {QStringLiteral("-rf"), m_dir.path()});
    }
    bool isValid() const { return m_dir.isValid(); }
    QString path() const { return m_dir.path(); }

private:
    QTemporaryDir m_dir;
};

// Builds a random tree with raw file names and records its directories.
class TreeMaker
{
public:
    explicit TreeMaker(unsigned seed) : m_random(seed) { }

    QList<QByteArray> directories;
    int entries = 0;

    void make(const QByteArray &root, int maxDepth, int maxEntries)
    {
        m_bigFile = root + "/big";
        writeFile(m_bigFile, qint64(3) << 30);
        directories.append(root);
        fill(root, maxDepth, maxEntries);
    }

private:
    std::mt19937 m_random;
    QByteArray m_bigFile;
    int m_serial = 0;

    int pick(int below) { return int(m_random() % unsigned(below)); }

    QByteArray name()
    {
        static const char *const stems[] = {
            "f", ".hidden", "with space ", "bad\xff", "\xef\xbb\xbf" "lead", "mid\xef\xbb\xbf", "\xc3\xa4",
            "over\xc0\xaf", "non\xef\xbf\xbe", "nl\n", "sur\xed\xa0\x80", "long\xf4\x90\x80\x80",
        };
        const int stem = pick(4) == 0 ? pick(int(std::size(stems))) : 0;
        return stems[stem] + QByteArray::number(++m_serial);
    }

    void own(const QByteArray &path)
    {
        static const uid_t owners[] = {0, 0, 0, 1000, 1001};
        if (isRoot())
            QVERIFY(::lchown(path.constData(), owners[pick(5)], 0) == 0);
    }

    static void writeFile(const QByteArray &path, qint64 size)
    {
        const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        QVERIFY(fd >= 0);
        QVERIFY(::ftruncate(fd, size) == 0);
        ::close(fd);
    }

    void fill(const QByteArray &dir, int depthLeft, int maxEntries)
    {
        const int count = pick(maxEntries + 1);
        for (int i = 0; i < count; ++i) {
            const QByteArray path = dir + '/' + name();
            ++entries;
            switch (pick(10)) {
            case 0:
            case 1:
                if (depthLeft > 0) {
                    QVERIFY(::mkdir(path.constData(), 0755) == 0);
                    directories.append(path);
                    fill(path, depthLeft - 1, maxEntries);
                    own(path);
                    continue;
                }
                Q_FALLTHROUGH();
            case 2:
            case 3:
            case 4:
                writeFile(path, pick(10000));
                break;
            case 5: {
                static const char *const targets[] = {"f1", "nowhere", "..", ".", "/proc/self/nothing"};
                QVERIFY(::symlink(targets[pick(5)], path.constData()) == 0);
                break;
            }
            case 6:
                QVERIFY(::symlink(m_bigFile.constData(), path.constData()) == 0);
                break;
            case 7:
                QVERIFY(::symlink(directories.at(pick(directories.size())).constData(), path.constData()) == 0);
                break;
            case 8:
                QVERIFY(::mkfifo(path.constData(), 0644) == 0);
                break;
            default:
                writeFile(path, 0);
                break;
            }
            own(path);
        }
    }
};

qint64 fastSize(const QString &path, const QSet<QString> &excluded, uint owner, int threads)
{
    DirectoryWalker walker(owner, excluded);
    walker.setMaxThreads(threads);
    walker.setEntriesBeforeHelpers(threads > 1 ? 0 : -1);
    return walker.size(path);
}

// Creates `levels` nested directories "d" below `root`, each holding a 7-byte
// file, through descriptors (no path could name the deep ones).
void makeDeepChain(const QByteArray &root, int levels)
{
    int fd = ::open(root.constData(), O_RDONLY | O_DIRECTORY);
    QVERIFY(fd >= 0);
    for (int i = 0; i < levels; ++i) {
        const int file = ::openat(fd, "f", O_WRONLY | O_CREAT, 0644);
        QVERIFY(file >= 0);
        QCOMPARE(::write(file, "1234567", 7), ssize_t(7));
        ::close(file);
        QVERIFY(::mkdirat(fd, "d", 0755) == 0);
        const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY);
        QVERIFY(next >= 0);
        ::close(fd);
        fd = next;
    }
    ::close(fd);
}

} // namespace

class TestDirectoryWalker : public QObject
{
    Q_OBJECT

private slots:
    void validUtf8MatchesQt()
    {
        // Qt lists a name when it is valid UTF-8; decoding and re-encoding a
        // path (never starting with a byte-order mark) is then lossless.
        std::mt19937 random(7);
        const char interesting[] = {'\x00', '\x7f', '\x80', '\xbf', '\xc0', '\xc1', '\xc2', '\xdf', '\xe0', '\xa0',
                                    '\xed', '\x9f', '\xef', '\xbf', '\xbe', '\xf0', '\x90', '\xf4', '\x8f', '\xf5',
                                    '\xff', 'a'};
        for (int i = 0; i < 200000; ++i) {
            QByteArray bytes(1 + int(random() % 6), Qt::Uninitialized);
            for (char &c : bytes)
                c = random() % 2 ? interesting[random() % sizeof interesting] : char(random());
            const QByteArray path = "/" + bytes.replace('\0', 'z');
            const bool qtRoundTrip = QFile::encodeName(QFile::decodeName(path)) == path;
            QVERIFY2(LocalFileNames::isValidUtf8(path.constData(), std::size_t(path.size())) == qtRoundTrip,
                     path.toHex().constData());
        }
    }

    void generatedTrees_data()
    {
        QTest::addColumn<unsigned>("seed");
        for (unsigned seed = 1; seed <= 24; ++seed)
            QTest::addRow("seed %u", seed) << seed;
    }

    void generatedTrees()
    {
        QFETCH(unsigned, seed);
        Scratch temporary;
        QVERIFY(temporary.isValid());
        const QByteArray base = QFile::encodeName(temporary.path());
        const QByteArray root = base + "/tree";
        QVERIFY(::mkdir(root.constData(), 0755) == 0);
        TreeMaker maker(seed);
        maker.make(root, 4, 9);
        if (QTest::currentTestFailed())
            return;
        // A link to leave through and come back by "..", and a plain link to the tree.
        const QByteArray inner = maker.directories.last();
        QVERIFY(::symlink(inner.constData(), QByteArray(base + "/into").constData()) == 0);
        QVERIFY(::symlink(root.constData(), QByteArray(base + "/alias").constData()) == 0);

        const QString rootPath = QFile::decodeName(root);
        const QString basePath = QFile::decodeName(base);
        QSet<QString> excludedSome;
        std::mt19937 random(seed);
        for (const QByteArray &dir : qAsConst(maker.directories)) {
            const QString path = QFile::decodeName(dir);
            switch (random() % 5) {
            case 0:
                excludedSome.insert(path);
                break;
            case 1:
                excludedSome.insert(path + '/');
                break;
            case 2:
                excludedSome.insert(QString(path).replace(rootPath, basePath + "//tree"));
                break;
            default:
                break;
            }
        }
        const QStringList roots = {
            rootPath,
            rootPath + '/',
            rootPath + "//",
            basePath + "//tree/",
            basePath + "/alias",
            basePath + "/into/..",
            basePath + "/into/../",
            basePath + "/tree/./",
            rootPath + "/missing",
            rootPath + "/big",
            QString(),
            QStringLiteral("tree"),
            QStringLiteral("tree/../tree/"),
        };
        const QString previous = QDir::currentPath();
        QVERIFY(QDir::setCurrent(basePath));
        const uint owners[] = {0, 1000, uint(-2)};
        for (uint owner : owners) {
            for (const QString &path : roots) {
                for (const QSet<QString> &excluded : {QSet<QString>(), excludedSome, QSet<QString>{path}}) {
                    const qint64 expected = referenceDirectorySize(path, excluded, owner);
                    const QByteArray what = QStringLiteral("%1 owner %2 excluded %3")
                                                    .arg(path).arg(owner).arg(excluded.size()).toUtf8();
                    QVERIFY2(fastSize(path, excluded, owner, 1) == expected, what.constData());
                    QVERIFY2(fastSize(path, excluded, owner, 2) == expected, what.constData());
                    QVERIFY2(fastSize(path, excluded, owner, 4) == expected, what.constData());
                }
            }
        }
        QDir::setCurrent(previous);
    }

    void knownFigures()
    {
        if (!isRoot())
            QSKIP("needs root to give files away");
        Scratch temporary;
        const QByteArray root = QFile::encodeName(temporary.path());
        auto write = [&](const char *name, int size, uid_t owner) {
            QFile file(QFile::decodeName(root + '/' + name));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(QByteArray(size, 'x'));
            file.close();
            QVERIFY(::chown(file.fileName().toLocal8Bit().constData(), owner, 0) == 0);
        };
        QVERIFY(::mkdir(QByteArray(root + "/mine").constData(), 0755) == 0);
        QVERIFY(::mkdir(QByteArray(root + "/theirs").constData(), 0755) == 0);
        QVERIFY(::chown(QByteArray(root + "/theirs").constData(), 1000, 0) == 0);
        write("a", 100, 0);
        write(".hidden", 20, 0);
        write("other", 5000, 1000);
        write("mine/b", 3, 0);
        write("theirs/c", 7000, 0); // below a directory of another owner: not reached
        write("huge", 0, 0);
        QVERIFY(::truncate(QByteArray(root + "/huge").constData(), qint64(1) << 32) == 0);
        QVERIFY(::symlink(QByteArray(root + "/huge").constData(), QByteArray(root + "/link").constData()) == 0);
        const qint64 linkLength = root.size() + 5;
        QVERIFY(::symlink("/nowhere/at/all", QByteArray(root + "/dangling").constData()) == 0);
        QVERIFY(::mkdir(QByteArray(root + "/bad\xff").constData(), 0755) == 0);
        // An undecodable directory is not listed at all.
        const int bad = ::open(QByteArray(root + "/bad\xff/x").constData(), O_WRONLY | O_CREAT, 0644);
        QVERIFY(bad >= 0);
        QCOMPARE(::write(bad, "x", 1), ssize_t(1));
        ::close(bad);

        const QString path = temporary.path();
        const qint64 ownFiles = 100 + 20 + 3 + (qint64(1) << 32) + linkLength;
        QCOMPARE(DirectoryWalker(0).size(path), ownFiles);
        QCOMPARE(DirectoryWalker(0).size(path + '/'), ownFiles);
        QCOMPARE(DirectoryWalker(0, {path + "/mine"}).size(path), ownFiles - 3);
        QCOMPARE(DirectoryWalker(0, {path + "/mine/"}).size(path), ownFiles); // exact strings only
        QCOMPARE(DirectoryWalker(0, {path}).size(path), qint64(0));
        QCOMPARE(DirectoryWalker(1000).size(path), qint64(5000));
        QCOMPARE(DirectoryWalker(uint(-2)).size(path), qint64(15)); // the dangling link's own length
        QCOMPARE(DirectoryWalker(0).size(path + "/nothing"), qint64(0));
    }

    void fileDatedAfter2038CountsLikeAnyOther()
    {
        Scratch temporary;
        const QByteArray path = QFile::encodeName(temporary.path()) + "/future.log";
        const QByteArray content(123, 'x');
        const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        QVERIFY(fd >= 0);
        QCOMPARE(::write(fd, content.constData(), std::size_t(content.size())), ssize_t(content.size()));
        // 2040-01-01T00:00:00Z, past the last second a 32-bit time_t holds.
        const time_t farFuture = 2208988800;
        const struct timespec times[2] = {{farFuture, 0}, {farFuture, 0}};
        QVERIFY(::futimens(fd, times) == 0);
        ::close(fd);
        struct stat st = {};
        QVERIFY(::stat(path.constData(), &st) == 0);
        QCOMPARE(st.st_mtime, farFuture);

        QCOMPARE(DirectoryWalker(::geteuid()).size(temporary.path()), qint64(content.size()));
    }

    void deepTreeGivesThePathLimitedFigure()
    {
        Scratch temporary(true);
        const QByteArray root = QFile::encodeName(temporary.path());
        const int levels = 100000;
        makeDeepChain(root, levels);
        if (QTest::currentTestFailed())
            return;

        const qint64 expected = referenceDirectorySize(temporary.path(), {}, ::geteuid());
        // Every level whose path fits counts its file; the rest cannot be named.
        const qint64 reachable = (PATH_MAX - 1 - root.size()) / 2;
        QCOMPARE(expected, 7 * reachable);

        // Far fewer descriptors than levels, and no recursion per level.
        struct rlimit saved;
        QVERIFY(::getrlimit(RLIMIT_NOFILE, &saved) == 0);
        struct rlimit low = saved;
        low.rlim_cur = 160;
        QVERIFY(::setrlimit(RLIMIT_NOFILE, &low) == 0);
        const qint64 single = fastSize(temporary.path(), {}, ::geteuid(), 1);
        const qint64 shared = fastSize(temporary.path(), {}, ::geteuid(), 2);
        ::setrlimit(RLIMIT_NOFILE, &saved);
        QCOMPARE(single, expected);
        QCOMPARE(shared, expected);
    }

    void wideTreeOnSeveralThreads()
    {
        Scratch temporary;
        const QByteArray root = QFile::encodeName(temporary.path());
        TreeMaker maker(99);
        maker.make(root, 3, 24);
        const qint64 expected = referenceDirectorySize(temporary.path(), {}, 0);
        // The walk never changes the calling thread's priority.
        const int priority = ::getpriority(PRIO_PROCESS, id_t(::gettid()));
        for (int round = 0; round < 10; ++round) {
            QCOMPARE(fastSize(temporary.path(), {}, 0, 2), expected);
            QCOMPARE(fastSize(temporary.path(), {}, 0, 8), expected);
        }
        QCOMPARE(::getpriority(PRIO_PROCESS, id_t(::gettid())), priority);
    }

    // Walks at once share one pool of as many threads as there are cores;
    // those threads, and only they, run at a lower priority, and the threads
    // that asked for the walks keep theirs.
    void concurrentWalksShareOneLoweredPool()
    {
        const int ownPriority = ::getpriority(PRIO_PROCESS, id_t(::gettid()));
        if (ownPriority >= 10)
            QSKIP("the test runs at a priority as low as the walks' already");
        // Folders of the walking user's own, so that there is a tree to share.
        Scratch temporary;
        for (int folder = 0; folder < 64; ++folder) {
            const QString path = QStringLiteral("%1/d%2/e").arg(temporary.path()).arg(folder);
            QVERIFY(QDir().mkpath(path));
            QFile file(path + QStringLiteral("/f"));
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(QByteArray(folder, 'x'));
        }
        const uint owner = ::geteuid();
        const qint64 expected = referenceDirectorySize(temporary.path(), {}, owner);
        QVERIFY(expected > 0);

        constexpr int Walkers = 4;
        std::vector<qint64> sizes(Walkers);
        std::vector<int> priorityChanged(Walkers);
        std::vector<std::thread> walkers;
        for (int i = 0; i < Walkers; ++i) {
            walkers.emplace_back([&, i] {
                const int before = ::getpriority(PRIO_PROCESS, id_t(::gettid()));
                for (int round = 0; round < 5; ++round)
                    sizes[i] = fastSize(temporary.path(), {}, owner, 8);
                priorityChanged[i] = ::getpriority(PRIO_PROCESS, id_t(::gettid())) != before;
            });
        }
        for (std::thread &walker : walkers)
            walker.join();
        for (int i = 0; i < Walkers; ++i) {
            QCOMPARE(sizes[i], expected);
            QCOMPARE(priorityChanged[i], 0);
        }

        // The pool's threads stay for a while after the walks.
        int lowered = 0;
        const QStringList tasks = QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString &task : tasks) {
            QFile stat(QStringLiteral("/proc/self/task/%1/stat").arg(task));
            QVERIFY(stat.open(QIODevice::ReadOnly));
            const QByteArray line = stat.readAll();
            // The fields after the command name: the 19th of the line, the
            // nice value, is the 17th of them.
            const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
            if (fields.value(16).toInt() > ownPriority)
                ++lowered;
        }
        QVERIFY(lowered >= 1);
        QVERIFY2(lowered <= qMax(1, QThread::idealThreadCount()), QByteArray::number(lowered).constData());
        QCOMPARE(::getpriority(PRIO_PROCESS, id_t(::gettid())), ownPriority);
    }
};

QTEST_GUILESS_MAIN(TestDirectoryWalker)
#include "tst_directorywalker.moc"
