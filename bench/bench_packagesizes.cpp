// SPDX-License-Identifier: BSD-3-Clause
// Package size sums: PackageSizes::read("tarn-*") on a database of 2,000 tiny
// packages against `rpm -qa --qf '%{SIZE}\n' 'tarn-*'` on the same database,
// side by side in the same run. Prints the ratio; never fails on a figure.
// The database is built by the test bench's tests/harness/rpmdb.py.
//
//   bench_packagesizes [packages]
#include "packagesizes.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>

namespace {

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const int packages = app.arguments().size() > 1 ? app.arguments().at(1).toInt() : 2000;
    QTemporaryDir scratch;

    // A quarter store applications, a tenth debug information, the rest other names.
    const QString script = QStringLiteral(
            "import rpmdb\n"
            "db = rpmdb.RpmDatabase(%1)\n"
            "names = {}\n"
            "for i in range(%2):\n"
            "    name = ('tarn-app%d' if i % 4 == 0 else 'lib%d-debuginfo' if i % 10 == 1 else 'base-pkg%d') % i\n"
            "    names[name] = (i * 37) % 5000\n"
            "db.install(names)\n"
            "print(db.home)\n")
                                   .arg(QLatin1Char('\'') + scratch.path() + QLatin1Char('\''))
                                   .arg(packages);
    QProcess python;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PYTHONPATH"), QStringLiteral(PLINTHD_SOURCE_DIR "/tests/harness"));
    python.setProcessEnvironment(environment);
    QElapsedTimer timer;
    timer.start();
    python.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-c"), script});
    if (!python.waitForFinished(-1) || python.exitCode() != 0) {
        out << "could not build the database: " << python.readAllStandardError() << "\n";
        return 1;
    }
    const QByteArray home = python.readAllStandardOutput().trimmed();
    qputenv("HOME", home);
    out << packages << " packages built and registered in " << timer.elapsed() << " ms\n";

    quint64 toolSum = 0;
    auto tool = [&] {
        QProcess rpm;
        rpm.start(QStringLiteral("rpm"), {QStringLiteral("-qa"), QStringLiteral("--qf"), QStringLiteral("%{SIZE}\\n"),
                                          QStringLiteral("tarn-*")});
        rpm.waitForFinished(-1);
        toolSum = 0;
        for (const QByteArray &line : rpm.readAllStandardOutput().split('\n'))
            toolSum += line.toULongLong();
    };
    quint64 sum = 0;
    auto ours = [&] { sum = PackageSizes::read(QStringLiteral("tarn-*")); };

    tool();
    ours();
    out << "sum " << sum << (sum == toolSum ? " (same as the rpm tool)" : " (DIFFERS from the rpm tool!)") << "\n";

    QList<double> toolTimes, ourTimes;
    for (int round = 0; round < 9; ++round) {
        timer.restart();
        tool();
        toolTimes << timer.nsecsElapsed() / 1e6;
        timer.restart();
        ours();
        ourTimes << timer.nsecsElapsed() / 1e6;
    }
    const double toolMs = median(toolTimes);
    const double ourMs = median(ourTimes);
    out << QString::asprintf("rpm -qa --qf '%%{SIZE}\\n' 'tarn-*'  %8.2f ms\n", toolMs);
    out << QString::asprintf("packagesSize(\"tarn-*\")             %8.2f ms  ratio %.2f (target at most 0.8)\n",
                             ourMs, ourMs / toolMs);
    return 0;
}
