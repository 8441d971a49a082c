// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_DELAYEDREPLY_H
#define PLINTHD_DELAYEDREPLY_H

#include <QDBusConnection>
#include <QDBusMessage>
#include <QVariant>

class QDBusContext;

// The answer to one D-Bus call that is sent after the dispatch has returned:
// when a peer has answered or a worker has finished. Made within the method
// the call is being served by, it takes the reply over from the dispatch; its
// copies of the connection and the call outlive the caller's message.
//
// send() belongs to the main thread, like every use of the bus connection.
// A caller that flagged its call as needing no reply is still sent one; only
// the dispatch's bookkeeping is skipped (the bus drops such a reply).
class DelayedReply
{
public:
    explicit DelayedReply(const QDBusContext &context);

    // The reply, with `value` as its one argument.
    void send(const QVariant &value) const;

private:
    QDBusConnection m_connection;
    QDBusMessage m_call;
};

#endif // PLINTHD_DELAYEDREPLY_H
