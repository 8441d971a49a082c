// SPDX-License-Identifier: BSD-3-Clause
#include "dbustypes.h"
#include "logging.h"

#include "featuresservice.h"
#include "simservice.h"
#include "storagesservice.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QThreadPool>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// [0] is written by the SIGTERM handler, [1] is watched by the event loop.
int termSocketPair[2] = {-1, -1};

// Async-signal context: the byte turns SIGTERM into an ordinary event-loop event.
void termSignalHandler(int)
{
    const char byte = 1;
    if (::write(termSocketPair[0], &byte, sizeof(byte)) < 1 && lcPlinthd().isWarningEnabled())
        qCWarning(lcPlinthd) << "Failed to handle term signal.";
}

// A service that cannot register means another daemon owns the name or there
// is no bus: leave at once, without tearing down what exists (the bus drops
// the name with the connection), so later services are never made.
template<typename Service>
Service *startService(QCoreApplication *app, const char *className)
{
    auto *service = new Service(app);
    if (!service->isRegistered()) {
        qCritical() << className << "registration failed (already running or DBus not found), exiting";
        _exit(1);
    }
    return service;
}

const char HelpText[] =
    "Usage: plinthd [--help | --version]\n"
    "\n"
    "The device information daemon: serves org.norvu.plinth on the D-Bus system\n"
    "bus (or the bus DBUS_SYSTEM_BUS_ADDRESS names) until SIGTERM. It is started\n"
    "by the bus through the systemd unit plinthd.service, not by hand.\n"
    "\n"
    "  --help     show this text and exit\n"
    "  --version  show the version and exit\n"
    "\n"
    "PLINTHD_DEBUG set to any non-empty value turns on debug messages.\n"
    "See plinthd(8) and plinthd-interfaces(7).\n";

// Someone who asks the program what it is gets an answer, not a daemon that
// takes the bus name. Every other argument is left to the application
// object, as it always was.
bool answersCommandLine(int argc, char *argv[])
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(HelpText, stdout);
            return true;
        }
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("plinthd %s\n", PLINTHD_VERSION);
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char *argv[])
{
    if (answersCommandLine(argc, argv))
        return 0;

    PlinthTypes::registerQuotaInfoMap();

    // Any value but the empty one switches debug output on, "0" included.
    Logging::installDebugSwitch(!qgetenv("PLINTHD_DEBUG").isEmpty());
    Logging::installJournalPriorities();

    auto *app = new QCoreApplication(argc, argv);
    qCDebug(lcPlinthd) << "Plinth daemon application created";

    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, termSocketPair) != 0)
        qFatal("Couldn't create TERM socketpair");
    auto *termNotifier = new QSocketNotifier(termSocketPair[1], QSocketNotifier::Read, app);
    QObject::connect(termNotifier, SIGNAL(activated(int)), app, SLOT(quit()));

    struct sigaction termAction = {};
    termAction.sa_handler = termSignalHandler;
    sigemptyset(&termAction.sa_mask);
    termAction.sa_flags = SA_RESTART;
    if (sigaction(SIGTERM, &termAction, nullptr) != 0)
        qFatal("Failed setup SIGTERM signal handler");

    auto *featuresService = startService<FeaturesService>(app, "FeaturesService");
    auto *simService = startService<SimService>(app, "SimService");
    auto *storagesService = startService<StoragesService>(app, "StoragesService");

    const int status = app->exec();

    ::close(termSocketPair[0]);
    ::close(termSocketPair[1]);
    qCDebug(lcPlinthd) << "exit";

    // The storage computations run on the global pool (as many threads as
    // the machine has cores) and use the storage provider; they must be
    // finished before the services go away. Their results, and the replies of
    // calls still held for a peer, are never sent: those callers get their
    // own time-out (NoReply), the bus having dropped the connection anyway.
    QThreadPool::globalInstance()->waitForDone();

    delete storagesService;
    delete simService;
    delete featuresService;
    delete app;
    return status;
}
