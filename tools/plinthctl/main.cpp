// SPDX-License-Identifier: BSD-3-Clause
// plinthctl: asks plinthd on the system bus and shows its answers.

#include "busquery.h"
#include "commandline.h"
#include "jsonwriter.h"
#include "reports.h"
#include "signalmonitor.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

using namespace PlinthCtl;

namespace {

int quitSocket[2] = {-1, -1};

void quitSignalHandler(int)
{
    const char byte = 1;
    // Nothing to do when the write fails: the loop is already waking up.
    [[maybe_unused]] const ssize_t written = ::write(quitSocket[0], &byte, sizeof(byte));
}

// Ctrl-C and SIGTERM end the monitor through the event loop, so that it leaves
// with status 0 and flushed output instead of being cut off.
bool quitOnSignals(QCoreApplication *app)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, quitSocket) != 0)
        return false;
    auto *notifier = new QSocketNotifier(quitSocket[1], QSocketNotifier::Read, app);
    QObject::connect(notifier, &QSocketNotifier::activated, app, &QCoreApplication::quit);
    struct sigaction action = {};
    action.sa_handler = quitSignalHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return sigaction(SIGINT, &action, nullptr) == 0 && sigaction(SIGTERM, &action, nullptr) == 0;
}

void print(FILE *stream, const QByteArray &text)
{
    fwrite(text.constData(), 1, size_t(text.size()), stream);
}

int fail(const QString &message)
{
    print(stderr, QByteArrayLiteral("plinthctl: ") + message.toUtf8() + '\n');
    return 1;
}

// The monitor's own connection rather than QDBusConnection::systemBus(): Qt
// holds back everything the default connection receives until the event loop
// runs, and then delivers what arrives at that moment ahead of what it held
// back. A signal sent just after "Monitoring" could then be shown after one
// sent later. A connection made by name delivers in order from the start.
const char MonitorConnectionName[] = "plinthctl-monitor";

int monitorUntilQuit(QCoreApplication &app, const QDBusConnection &bus, bool json)
{
    SignalMonitor monitor(bus, json ? SignalMonitor::Json : SignalMonitor::Text, stdout);
    QString error;
    if (!monitor.start(&error))
        return fail(error);
    if (!quitOnSignals(&app))
        return fail(QStringLiteral("cannot handle SIGINT and SIGTERM"));
    // On standard error, so that the output stays the daemon's news only.
    const QString started = monitor.startDaemon();
    if (!started.isEmpty())
        print(stderr, QByteArrayLiteral("plinthctl: ") + started.toUtf8() + '\n');
    // Without a bus the monitor would wait for ever for news that cannot come.
    QObject::connect(&monitor, &SignalMonitor::busLost, &app, [&app] {
        print(stderr, QByteArrayLiteral("plinthctl: the system bus has gone away; stopping\n"));
        app.exit(1);
    });
    print(stderr, QByteArrayLiteral("Monitoring the signals of org.norvu.plinth; Ctrl-C stops.\n"));
    return app.exec();
}

int runMonitor(QCoreApplication &app, bool json)
{
    const QString name = QLatin1String(MonitorConnectionName);
    const int status = monitorUntilQuit(app, QDBusConnection::connectToBus(QDBusConnection::SystemBus, name), json);
    QDBusConnection::disconnectFromBus(name);
    return status;
}

int runQuery(const CommandLine &commandLine)
{
    BusQuery query(QDBusConnection::systemBus());
    switch (commandLine.command) {
    case CommandLine::Overview:
        Reports::requestFeatures(query);
        Reports::requestSims(query);
        Reports::requestStorage(query, Reports::storageParts());
        break;
    case CommandLine::Features:
        Reports::requestFeatures(query);
        break;
    case CommandLine::Sims:
        Reports::requestSims(query);
        break;
    case CommandLine::Storage:
        Reports::requestStorage(query, commandLine.storageParts);
        break;
    default:
        break;
    }
    if (!query.run())
        return fail(query.errorText());

    const QVariantMap document = query.document();
    if (commandLine.json) {
        print(stdout, JsonWriter::write(document));
        return 0;
    }
    QString text;
    switch (commandLine.command) {
    case CommandLine::Features:
        text = Reports::featuresText(document);
        break;
    case CommandLine::Sims:
        text = Reports::simsText(document);
        break;
    case CommandLine::Storage:
        text = Reports::storageText(document);
        break;
    default:
        text = Reports::overviewText(document);
        break;
    }
    print(stdout, text.toUtf8());
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("plinthctl"));
    QCoreApplication::setApplicationVersion(QStringLiteral(PLINTHD_VERSION));

    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    const CommandLine commandLine = CommandLine::parse(arguments);
    if (!commandLine.error.isEmpty())
        return fail(commandLine.error + QStringLiteral(" (see plinthctl --help)"));

    switch (commandLine.command) {
    case CommandLine::Help:
        print(stdout, CommandLine::helpText().toUtf8());
        return 0;
    case CommandLine::Version:
        print(stdout, QByteArrayLiteral("plinthctl " PLINTHD_VERSION "\n"));
        return 0;
    case CommandLine::Monitor:
        return runMonitor(app, commandLine.json);
    default:
        return runQuery(commandLine);
    }
}
