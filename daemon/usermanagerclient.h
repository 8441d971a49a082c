// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_USERMANAGERCLIENT_H
#define PLINTHD_USERMANAGERCLIENT_H

#include <QDBusMessage>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QVariantList>

// The user manager on the system bus ("org.brisaos.usermanager", object "/"):
// who the current user is, and that user's locale. Each call blocks with
// QtDBus's default time-out and hands the reply back as it came, error replies
// included; how a reply is read is the caller's business.
//
// Which connection a call goes out on depends on the calling thread (the rules
// of every thread are in docs/threading.md):
//   the main thread   the daemon's shared system bus connection;
//   any other thread  a connection of this client's own, opened on first use,
//                     that carries one call at a time.
// Why: a blocking QtDBus call stores the reply's error in its connection, in
// one member shared by every thread and guarded by no lock. Two threads that
// block on the same connection at once and both get an error reply (the user
// manager is not on the bus, or fails) free the same error text twice, and the
// daemon dies of heap corruption. So no thread but the main thread blocks on
// the shared connection, and the other threads' connection is never blocked
// on by two of them at once. Calls from the main thread never wait for the
// lock: a pool thread that waits on a stalled user manager holds up no other
// object of the daemon.
class UserManagerClient : public QObject
{
    Q_OBJECT

public:
    explicit UserManagerClient(QObject *parent = nullptr);
    ~UserManagerClient() override;

    // "currentUser", no arguments: the uid, an unsigned 32-bit value.
    QDBusMessage currentUser();
    // "getUserLocale" with the uid as an unsigned 32-bit value: a string.
    QDBusMessage userLocale(uint uid);

private:
    QDBusMessage call(const QString &method, const QVariantList &arguments);
    QDBusMessage callFromOtherThread(const QDBusMessage &message);

    // The connection of the threads other than the main one.
    const QString m_ownConnectionName;
    QMutex m_ownConnectionLock; // held for the whole of each call on it
    bool m_ownConnectionOpened = false;

    Q_DISABLE_COPY(UserManagerClient)
};

#endif // PLINTHD_USERMANAGERCLIENT_H
