// SPDX-License-Identifier: BSD-3-Clause
#include <plinth/daemon.h>

#include <QAtomicInteger>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>

namespace Plinth {

namespace {

QDBusMessage busDriverCall(const QString &method)
{
    return QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                          QStringLiteral("/org/freedesktop/DBus"),
                                          QStringLiteral("org.freedesktop.DBus"), method);
}

const char RunningAnswerInterface[] = "org.norvu.plinth.client.RunningAnswer";

} // namespace

// Answers start() for a daemon that runs, as the bus answers where it can
// start it: the StartResult AlreadyRunning. A reply made up in the process
// would not do: QtDBus takes a finished reply only as it comes out of its
// own marshalling, with the signature a bus would give it. A call that a
// connection makes to its own unique name goes through that marshalling and
// is answered at once, in the process: this object, on the connection of its
// Daemon, is what that call reaches.
class RunningAnswer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.norvu.plinth.client.RunningAnswer")

public:
    using QObject::QObject;

public slots:
    uint alreadyRunning() const { return Daemon::AlreadyRunning; }
};

// Who owns the daemon's name, as far as this object has heard: the answer to
// the question asked when it was made, then every change the bus announced.
// The watcher's match rule goes to the bus before the question, so a change
// announced before the answer is older than the answer, and one announced
// after it is newer: taking each as it is delivered keeps the newest.
class Daemon::Private
{
public:
    explicit Private(const QDBusConnection &connection)
        : bus(connection)
    {
    }

    void takeInitialOwner()
    {
        if (initialOwnerTaken)
            return;
        initialOwnerTaken = true;
        ownerKnown = true;
        owner = initialOwner.isValid() ? initialOwner.value() : QString();
    }

    QDBusConnection bus;
    QDBusPendingReply<QString> initialOwner;
    bool initialOwnerTaken = false;
    bool ownerKnown = false;
    QString owner;
    // Registered on the connection at the first start() that needs it, at a
    // path of this object's own.
    RunningAnswer *runningAnswer = nullptr;
    QString runningAnswerPath;
};

Daemon::Daemon(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , d(new Private(bus))
{
    auto *watcher = new QDBusServiceWatcher(serviceName(), bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &oldOwner, const QString &newOwner) {
                d->ownerKnown = true;
                d->owner = newOwner;
                // A new owner can take over directly from the old one.
                if (!oldOwner.isEmpty())
                    emit vanished(oldOwner);
                if (!newOwner.isEmpty())
                    emit appeared(newOwner);
            });
    d->initialOwner = owner();
    auto *answered = new QDBusPendingCallWatcher(d->initialOwner, this);
    connect(answered, &QDBusPendingCallWatcher::finished, this, [this, answered] {
        d->takeInitialOwner();
        answered->deleteLater();
    });
}

Daemon::~Daemon()
{
    if (d->runningAnswer)
        d->bus.unregisterObject(d->runningAnswerPath);
}

QDBusPendingReply<uint> Daemon::start() const
{
    // The bus answers StartServiceByName from its activation files alone: on
    // a bus without one for the daemon it answers ServiceUnknown even while
    // the daemon runs. So a running daemon is not asked of the bus.
    // The answer to the question asked when this object was made may be in
    // already, its notification not yet delivered; it is not waited for.
    // Until it is in, the bus answers.
    if (!d->ownerKnown && d->initialOwner.isFinished())
        d->takeInitialOwner();
    if (!d->owner.isEmpty() && !d->bus.baseService().isEmpty()) {
        if (!d->runningAnswer) {
            static QAtomicInteger<quint64> made;
            d->runningAnswer = new RunningAnswer(const_cast<Daemon *>(this));
            d->runningAnswerPath = QStringLiteral("/org/norvu/plinth/client/RunningAnswer%1").arg(made++);
            d->bus.registerObject(d->runningAnswerPath, d->runningAnswer, QDBusConnection::ExportAllSlots);
        }
        return d->bus.asyncCall(QDBusMessage::createMethodCall(d->bus.baseService(), d->runningAnswerPath,
                                                               QLatin1String(RunningAnswerInterface),
                                                               QStringLiteral("alreadyRunning")));
    }
    // The flags argument is unused by the bus and must be 0.
    return d->bus.asyncCall(busDriverCall(QStringLiteral("StartServiceByName")) << serviceName() << 0u);
}

QDBusPendingReply<QString> Daemon::owner() const
{
    return d->bus.asyncCall(busDriverCall(QStringLiteral("GetNameOwner")) << serviceName());
}

} // namespace Plinth

#include "daemon.moc"
