// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_USERMANAGERCLIENT_H
#define PLINTHD_USERMANAGERCLIENT_H

#include "sharedroundtrip.h"

#include <QObject>
#include <QString>
#include <QVariantList>

// The user manager on the system bus ("org.brisaos.usermanager", object "/"):
// who the current user is, and that user's locale. Every call is asynchronous
// on the daemon's shared system bus connection and the reply comes back as it
// came, error replies and time-outs included; how a reply is read is the
// caller's business.
//
// Main thread only (docs/threading.md): workers never talk to peers, they get
// what a query needs from the main thread. Questions asked while the same one
// is on its way share its round trip (SharedRoundTrip), so a stalled user
// manager costs a client one outstanding call for each question (the current
// user; the locale of each user asked for), not one for each caller. The
// daemon has two clients, LocaleInfo's and StoragesInfo's, which ask the
// current user each.
class UserManagerClient : public QObject
{
    Q_OBJECT

public:
    explicit UserManagerClient(QObject *parent = nullptr);
    ~UserManagerClient() override;

    // "currentUser", no arguments: the uid, an unsigned 32-bit value.
    void currentUser(const SharedRoundTrip::Answer &answer);
    // "getUserLocale" with the uid as an unsigned 32-bit value: a string.
    void userLocale(uint uid, const SharedRoundTrip::Answer &answer);

    // How long a call may take, in milliseconds; -1 (the default) is QtDBus's
    // own time-out of 25 seconds. For tests.
    void setTimeout(int milliseconds);

private:
    void ask(const QString &key, const QString &method, const QVariantList &arguments,
             const SharedRoundTrip::Answer &answer);

    SharedRoundTrip *m_roundTrips = nullptr;
    int m_timeout = -1;

    Q_DISABLE_COPY(UserManagerClient)
};

#endif // PLINTHD_USERMANAGERCLIENT_H
