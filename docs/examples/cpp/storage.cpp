// SPDX-License-Identifier: BSD-3-Clause
//
// Asynchronous storage questions with Qt. getInternalUserPartitionInfo and
// getSystemStorageInfo are answered later, from a worker of the daemon, once
// it has walked the files they count: on a full device that takes minutes,
// far longer than the 25 seconds QtDBus waits by default. So they are sent
// with a time-out of their own and their replies are awaited with
// QDBusPendingCallWatcher, while the event loop (and the daemon) stay free:
// a quick question asked in the meantime is answered at once.
//
//   plinth-example-storage

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QTextStream>

namespace {

const QString Service = QStringLiteral("org.norvu.plinth");
const QString Path = QStringLiteral("/org/norvu/plinth/Storages");
const QString Interface = QStringLiteral("org.norvu.plinth.Storages");
// Five minutes, in milliseconds.
const int StorageTimeout = 5 * 60 * 1000;

// Sizes are bytes. Most are "t" (qulonglong); a few are "x" (qlonglong):
// toULongLong() reads both.
QString bytes(const QVariantMap &map, const QString &key)
{
    if (!map.contains(key))
        return QStringLiteral("n/a");
    return QString::number(map.value(key).toULongLong()) + QStringLiteral(" bytes");
}

void printUserPartition(QTextStream &out, const QVariantMap &info)
{
    out << "User partition (" << info.value(QStringLiteral("deviceLabel")).toString() << ", "
        << info.value(QStringLiteral("filesystemType")).toString() << "):\n";
    out << "  total: " << bytes(info, QStringLiteral("bytesTotal")) << '\n';
    out << "  used: " << bytes(info, QStringLiteral("bytesUsed")) << '\n';
    out << "  available: " << bytes(info, QStringLiteral("bytesAvailable")) << '\n';
    // The breakdown is missing when the daemon could not tell who the
    // current user is.
    for (const char *folder : {"Pictures", "Videos", "Music", "Documents", "Downloads"})
        out << "  " << folder << ": " << bytes(info, QStringLiteral("bytesUsed") + QLatin1String(folder)) << '\n';
    out << "  other files: " << bytes(info, QStringLiteral("bytesUsedOther")) << '\n';
    out << "  other users: " << bytes(info, QStringLiteral("bytesUsedOtherUsers")) << '\n';
}

void printSystemStorage(QTextStream &out, const QVariantMap &info)
{
    out << "System storage:\n";
    out << "  total: " << bytes(info, QStringLiteral("bytesTotal")) << '\n';
    out << "  used: " << bytes(info, QStringLiteral("bytesUsed")) << '\n';
    for (const char *category : {"Apps", "DebugInfo", "SDK", "CoreDumps", "SystemLogs"})
        out << "  " << category << ": " << bytes(info, QStringLiteral("bytesUsed") + QLatin1String(category))
            << '\n';
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<QList<QVariantMap>>();
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) {
        QTextStream(stderr) << "no system bus: " << bus.lastError().message() << '\n';
        return 1;
    }
    QTextStream out(stdout);
    int pending = 0;
    int status = 0;

    // One asynchronous call: the watcher's finished() comes with the reply,
    // or with an error such as NoReply once the time-out has passed.
    auto ask = [&](const QString &method, void (*print)(QTextStream &, const QVariantMap &)) {
        const QDBusMessage call = QDBusMessage::createMethodCall(Service, Path, Interface, method);
        auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, StorageTimeout), &app);
        ++pending;
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &app,
                         [&, method, print](QDBusPendingCallWatcher *finished) {
                             const QDBusPendingReply<QVariantMap> reply = *finished;
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
    ask(QStringLiteral("getInternalUserPartitionInfo"), printUserPartition);
    ask(QStringLiteral("getSystemStorageInfo"), printSystemStorage);

    // Meanwhile the daemon answers other questions. This one sizes only the
    // external partitions and is quick, so the default time-out is enough.
    const QDBusMessage drives = bus.call(QDBusMessage::createMethodCall(Service, Path, Interface,
                                                                        QStringLiteral("getExternalStorageDrivesInfo")));
    if (drives.type() != QDBusMessage::ReplyMessage) {
        QTextStream(stderr) << "getExternalStorageDrivesInfo: " << drives.errorMessage() << '\n';
        return 1;
    }
    const auto driveList = qdbus_cast<QList<QVariantMap>>(drives.arguments().value(0));
    out << "External drives: " << driveList.size() << '\n';
    out.flush();

    return app.exec();
}
