// SPDX-License-Identifier: BSD-3-Clause
//
// Asynchronous storage questions with the client library.
// getInternalUserPartitionInfo and getSystemStorageInfo are answered later,
// from a worker of the daemon, once it has walked the files they count: on a
// full device that takes minutes. Plinth::Storages sends them with a time-out
// of five minutes (not QtDBus's 25 seconds), and their replies are awaited
// with QDBusPendingCallWatcher, while the event loop (and the daemon) stay
// free: a quick question asked in the meantime is answered at once.
//
//   plinth-example-storage

#include <plinth/storages.h>

#include <QCoreApplication>
#include <QDBusPendingCallWatcher>
#include <QTextStream>

namespace {

// Sizes are bytes.
QString bytes(quint64 size)
{
    return QString::number(size) + QStringLiteral(" bytes");
}

void printUserPartition(QTextStream &out, const Plinth::UserPartition &info)
{
    static const struct
    {
        const char *name;
        Plinth::UserPartition::Folder folder;
    } folders[] = {{"Pictures", Plinth::UserPartition::Pictures},
                   {"Videos", Plinth::UserPartition::Videos},
                   {"Music", Plinth::UserPartition::Music},
                   {"Documents", Plinth::UserPartition::Documents},
                   {"Downloads", Plinth::UserPartition::Downloads}};
    const QString notKnown = QStringLiteral("n/a");
    out << "User partition (" << info.deviceLabel() << ", " << info.filesystemType() << "):\n";
    out << "  total: " << bytes(info.bytesTotal()) << '\n';
    out << "  used: " << bytes(info.bytesUsed()) << '\n';
    out << "  available: " << bytes(info.bytesAvailable()) << '\n';
    // The breakdown is missing when the daemon could not tell who the
    // current user is.
    for (const auto &folder : folders) {
        out << "  " << folder.name << ": "
            << (info.hasBreakdown() ? bytes(info.bytesUsedIn(folder.folder)) : notKnown) << '\n';
    }
    out << "  other files: " << (info.hasBreakdown() ? bytes(info.bytesUsedOther()) : notKnown) << '\n';
    out << "  other users: " << (info.hasOtherUsers() ? bytes(info.bytesUsedOtherUsers()) : notKnown) << '\n';
}

void printSystemStorage(QTextStream &out, const Plinth::SystemStorage &info)
{
    static const struct
    {
        const char *name;
        Plinth::SystemStorage::Category category;
    } categories[] = {{"Apps", Plinth::SystemStorage::Apps},
                      {"DebugInfo", Plinth::SystemStorage::DebugInfo},
                      {"SDK", Plinth::SystemStorage::SDK},
                      {"CoreDumps", Plinth::SystemStorage::CoreDumps},
                      {"SystemLogs", Plinth::SystemStorage::SystemLogs}};
    out << "System storage:\n";
    out << "  total: " << bytes(info.bytesTotal()) << '\n';
    out << "  used: " << bytes(info.bytesUsed()) << '\n';
    for (const auto &category : categories)
        out << "  " << category.name << ": " << bytes(info.bytesUsedBy(category.category)) << '\n';
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const Plinth::Storages storages;
    int pending = 0;
    int status = 0;

    // One asynchronous call: the watcher's finished() comes with the reply,
    // or with an error such as NoReply once the time-out has passed.
    auto ask = [&](auto reply, const char *method, auto print) {
        auto *watcher = new QDBusPendingCallWatcher(reply, &app);
        ++pending;
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &app,
                         [&, reply, method, print](QDBusPendingCallWatcher *finished) {
                             if (reply.isError()) {
                                 QTextStream(stderr) << method << ": " << reply.error().message() << '\n';
                                 status = 1;
                             } else {
                                 print(out, reply.value());
                                 out.flush();
                             }
                             finished->deleteLater();
                             if (--pending == 0)
                                 app.exit(status);
                         });
    };
    ask(storages.getInternalUserPartitionInfo(), "getInternalUserPartitionInfo", printUserPartition);
    ask(storages.getSystemStorageInfo(), "getSystemStorageInfo", printSystemStorage);

    // Meanwhile the daemon answers other questions. This one sizes only the
    // external partitions and is quick, so waiting for it here is fine.
    auto drives = storages.getExternalStorageDrivesInfo();
    drives.waitForFinished();
    if (drives.isError()) {
        QTextStream(stderr) << "getExternalStorageDrivesInfo: " << drives.error().message() << '\n';
        return 1;
    }
    out << "External drives: " << drives.value().size() << '\n';
    out.flush();

    return app.exec();
}
