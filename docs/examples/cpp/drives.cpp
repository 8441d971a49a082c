// SPDX-License-Identifier: BSD-3-Clause
//
// Follows the external drives with the client library: lists them, then
// prints every externalDriveChanged signal as it comes.
//
//   plinth-example-drives [COUNT]
//
// stops after COUNT signals (without COUNT it runs until it is interrupted).
//
// The signal carries the drive of the drive whose partition changed, with all
// its partitions. An empty one announces that a drive has gone, but not which
// one: the program asks for the list again to find out.

#include <plinth/storages.h>

#include <QCoreApplication>
#include <QTextStream>

namespace {

QString describe(const Plinth::ExternalDrive &drive)
{
    QString text = drive.name() + QStringLiteral(" (") + drive.connectionName() + QStringLiteral(")");
    for (const Plinth::ExternalPartition &partition : drive.partitions()) {
        text += QStringLiteral(", ") + partition.name() + QStringLiteral(": ")
            + (partition.isMounted() ? QString::number(partition.bytesAvailable()) + QStringLiteral(" bytes free at ")
                       + partition.mountPoint()
                                     : QStringLiteral("not mounted"));
    }
    return text;
}

// Quick (only the external partitions are sized): waiting for it is fine.
bool list(const Plinth::Storages &storages)
{
    auto drives = storages.getExternalStorageDrivesInfo();
    drives.waitForFinished();
    if (drives.isError()) {
        QTextStream(stderr) << "getExternalStorageDrivesInfo: " << drives.error().message() << '\n';
        return false;
    }
    const Plinth::ExternalDriveList all = drives.value();
    QTextStream out(stdout);
    out << "drives: " << all.size() << '\n';
    for (const Plinth::ExternalDrive &drive : all)
        out << "  " << describe(drive) << '\n';
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 0;
    int left = count;
    Plinth::Storages storages;

    // Subscribe first, then ask: no change can fall in between.
    QObject::connect(&storages, &Plinth::Storages::externalDriveChanged, &app,
                     [&](const Plinth::ExternalDrive &drive) {
                         QTextStream out(stdout);
                         if (drive.isEmpty())
                             out << "removed: a drive has gone\n";
                         else
                             out << "changed: " << describe(drive) << '\n';
                         out.flush();
                         if (drive.isEmpty() && !list(storages))
                             QCoreApplication::exit(1);
                         if (left > 0 && --left == 0)
                             QCoreApplication::quit();
                     });
    // The daemon sends no signal before something has called it: the list
    // below is that call. (A program that runs for long also follows
    // Plinth::Daemon::appeared() and asks again: a daemon that restarted does
    // not announce what changed while it was away.)
    if (!list(storages))
        return 1;
    return app.exec();
}
