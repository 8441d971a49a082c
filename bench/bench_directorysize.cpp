// SPDX-License-Identifier: BSD-3-Clause
// Directory walk speed: the daemon's walker on a generated tree of about
// 200,000 entries against `du -s -b --apparent-size` on the same tree, warm
// cache, side by side in the same run. Prints ratios; never fails on a figure.
//
//   bench_directorysize [parent directory of the tree] [entries]
#include "directorywalker.h"
#include "referencewalk.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <functional>
#include <random>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Files of random apparent sizes, hidden files, links, entries and a few
// directories of another owner, spread over two levels of directories.
int makeTree(const QByteArray &root, int entries)
{
    std::mt19937 random(2024);
    const int perDirectory = 480;
    const int directories = qMax(1, entries / perDirectory);
    const int fanOut = 20;
    int made = 0;
    ::mkdir(root.constData(), 0755);
    for (int d = 0; d < directories; ++d) {
        const QByteArray middle = root + "/group" + QByteArray::number(d / fanOut);
        const QByteArray dir = middle + "/dir" + QByteArray::number(d);
        if (d % fanOut == 0 && ::mkdir(middle.constData(), 0755) == 0)
            ++made;
        ::mkdir(dir.constData(), 0755);
        ++made;
        if (d % 50 == 7)
            ::chown(dir.constData(), 1000, 1000);
        const int fd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY);
        for (int i = 0; i < perDirectory - 1; ++i) {
            const int kind = int(random() % 20);
            const QByteArray name = (kind == 0 ? QByteArray(".hidden") : QByteArray("file")) + QByteArray::number(i);
            if (kind == 1) {
                ::symlinkat("../dir0/file1", fd, name.constData());
            } else {
                const int file = ::openat(fd, name.constData(), O_WRONLY | O_CREAT, 0644);
                ::ftruncate(file, off_t(random() % 65536));
                if (kind == 2)
                    ::fchown(file, 1000, 1000);
                ::close(file);
            }
            ++made;
        }
        ::close(fd);
    }
    return made;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

double timeOnce(const std::function<void()> &run)
{
    QElapsedTimer timer;
    timer.start();
    run();
    return timer.nsecsElapsed() / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const QStringList args = app.arguments();
    const QString parent = args.size() > 1 ? args.at(1) : QDir::tempPath();
    const int wanted = args.size() > 2 ? args.at(2).toInt() : 200000;

    QTemporaryDir scratch(parent + QStringLiteral("/bench_directorysize-XXXXXX"));
    if (!scratch.isValid()) {
        out << "cannot make a scratch directory under " << parent << "\n";
        return 1;
    }
    const QString tree = scratch.path() + QStringLiteral("/tree");
    QElapsedTimer timer;
    timer.start();
    const int entries = makeTree(QFile::encodeName(tree), wanted);
    out << "tree: " << entries << " entries under " << tree << " (made in " << timer.elapsed() << " ms)\n";

    auto du = [&] {
        QProcess process;
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(QStringLiteral("du"), {QStringLiteral("-s"), QStringLiteral("-b"),
                                             QStringLiteral("--apparent-size"), tree});
        process.waitForFinished(-1);
    };
    qint64 figure = 0;
    auto walk = [&](int threads) {
        DirectoryWalker walker(0);
        walker.setMaxThreads(threads);
        figure = walker.size(tree);
    };

    // Warm the caches, and check the figure against the plain walk once.
    du();
    walk(2);
    const qint64 reference = referenceDirectorySize(tree, {}, 0);
    out << "figure " << figure << (figure == reference ? " (same as the QDir walk)" : " (DIFFERS from the QDir walk!)")
        << "\n";

    QList<double> duTimes, twoThreads, oneThread, plainWalk;
    const int rounds = 7;
    for (int round = 0; round < rounds; ++round) {
        duTimes << timeOnce(du);
        twoThreads << timeOnce([&] { walk(2); });
        oneThread << timeOnce([&] { walk(1); });
        if (round < 3)
            plainWalk << timeOnce([&] { referenceDirectorySize(tree, {}, 0); });
    }
    const double duMs = median(duTimes);
    auto report = [&](const char *what, double ms) {
        out << QString::asprintf("%-34s %8.1f ms  ratio to du %.2f  %.0f entries/s\n", what, ms, ms / duMs,
                                 entries / (ms / 1000.0));
    };
    out << QString::asprintf("%-34s %8.1f ms\n", "du -s -b --apparent-size", duMs);
    report("directorySize, two threads", median(twoThreads));
    report("directorySize, one thread", median(oneThread));
    report("plain QDir/QFileInfo walk", median(plainWalk));
    out << "target: two threads at most 0.6 of du\n";
    return 0;
}
