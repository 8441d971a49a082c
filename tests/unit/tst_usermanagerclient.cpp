// SPDX-License-Identifier: BSD-3-Clause
// UserManagerClient and its shared round trips on a private system bus
// (PRIVATE_BUS in CMakeLists), against a user manager of the test's own that
// answers, holds its replies, or fails, on a connection of its own. Both ends
// run in this thread's event loop: every call of the client is asynchronous.
#include "usermanagerclient.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusContext>
#include <QDBusError>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QtTest>

#include <functional>

namespace {

const QString UserManagerService = QStringLiteral("org.brisaos.usermanager");
const QString PeerConnection = QStringLiteral("user-manager");
const QString FailedError = QStringLiteral("org.brisaos.usermanager.Error.Failed");
constexpr uint OwnerUid = 100000;
constexpr int Callers = 5;
constexpr int WaitMilliseconds = 10000;
// Long enough for a second call to reach the peer, were one sent.
constexpr int SettleMilliseconds = 200;
constexpr int ShortTimeout = 300;

// The user manager's two methods, answering at once, holding every reply
// until told, or failing.
class FakeUserManager : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.brisaos.usermanager")

public:
    enum Mode { Answer, Hold, Fail };

    Mode mode = Answer;
    QStringList calls; // "currentUser", "getUserLocale 100000", ...

    // Answers every held call; returns how many there were.
    int releaseHeld()
    {
        for (const QDBusMessage &reply : qAsConst(m_held))
            QDBusConnection(PeerConnection).send(reply);
        const int count = m_held.size();
        m_held.clear();
        return count;
    }

public slots:
    uint currentUser()
    {
        calls.append(QStringLiteral("currentUser"));
        answer(QVariant(OwnerUid));
        return OwnerUid;
    }

    QString getUserLocale(uint uid)
    {
        calls.append(QStringLiteral("getUserLocale %1").arg(uid));
        const QString locale = uid == OwnerUid ? QStringLiteral("en_US.utf8") : QStringLiteral("fi_FI.utf8");
        answer(locale);
        return locale;
    }

private:
    void answer(const QVariant &value)
    {
        if (mode == Answer)
            return;
        setDelayedReply(true);
        if (mode == Fail)
            QDBusConnection(PeerConnection).send(message().createErrorReply(FailedError, QStringLiteral("failed")));
        else
            m_held.append(message().createReply(value));
    }

    QVector<QDBusMessage> m_held;
};

// Collects the replies its callers got.
struct Replies
{
    QVector<QDBusMessage> messages;

    SharedRoundTrip::Answer collector()
    {
        return [this](const QDBusMessage &reply) { messages.append(reply); };
    }
};

bool waitFor(const std::function<bool()> &condition, int milliseconds = WaitMilliseconds)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < milliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return condition();
}

void settle()
{
    waitFor([] { return false; }, SettleMilliseconds);
}

} // namespace

class TestUserManagerClient : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::systemBus().isConnected(), "needs a system bus");
        QDBusConnection peer = QDBusConnection::connectToBus(QDBusConnection::SystemBus, PeerConnection);
        QVERIFY(peer.isConnected());
        QVERIFY(peer.registerObject(QStringLiteral("/"), &m_userManager, QDBusConnection::ExportAllSlots));
        QVERIFY(peer.registerService(UserManagerService));
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(PeerConnection);
    }

    void init()
    {
        m_userManager.mode = FakeUserManager::Answer;
        m_userManager.calls.clear();
    }

    void severalCallersShareOneCall()
    {
        UserManagerClient client;
        m_userManager.mode = FakeUserManager::Hold;
        Replies replies;
        for (int i = 0; i < Callers; ++i)
            client.currentUser(replies.collector());
        QVERIFY(waitFor([this] { return m_userManager.calls.size() == 1; }));
        settle();
        QCOMPARE(m_userManager.calls, QStringList{QStringLiteral("currentUser")});
        QVERIFY(replies.messages.isEmpty());

        QCOMPARE(m_userManager.releaseHeld(), 1);
        QVERIFY(waitFor([&] { return replies.messages.size() == Callers; }));
        for (const QDBusMessage &reply : qAsConst(replies.messages)) {
            QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
            QCOMPARE(reply.arguments().value(0).toUInt(), OwnerUid);
        }
        settle();
        QCOMPARE(replies.messages.size(), Callers);
    }

    void eachUsersLocaleIsAQuestionOfItsOwn()
    {
        UserManagerClient client;
        m_userManager.mode = FakeUserManager::Hold;
        Replies owner;
        Replies other;
        client.userLocale(OwnerUid, owner.collector());
        client.userLocale(OwnerUid + 1, other.collector());
        client.userLocale(OwnerUid, owner.collector());
        QVERIFY(waitFor([this] { return m_userManager.calls.size() == 2; }));
        settle();
        QCOMPARE(m_userManager.calls.size(), 2);

        QCOMPARE(m_userManager.releaseHeld(), 2);
        QVERIFY(waitFor([&] { return owner.messages.size() == 2 && other.messages.size() == 1; }));
        for (const QDBusMessage &reply : qAsConst(owner.messages))
            QCOMPARE(reply.arguments().value(0).toString(), QStringLiteral("en_US.utf8"));
        QCOMPARE(other.messages.at(0).arguments().value(0).toString(), QStringLiteral("fi_FI.utf8"));
    }

    void callerAfterTheAnswerStartsAFreshRoundTrip()
    {
        UserManagerClient client;
        Replies first;
        client.currentUser(first.collector());
        QVERIFY(waitFor([&] { return first.messages.size() == 1; }));

        Replies second;
        client.currentUser(second.collector());
        QVERIFY(waitFor([&] { return second.messages.size() == 1; }));
        QCOMPARE(m_userManager.calls.size(), 2);
        QCOMPARE(second.messages.at(0).arguments().value(0).toUInt(), OwnerUid);
    }

    void callerJoiningFromAnAnswerStartsAFreshRoundTrip()
    {
        UserManagerClient client;
        Replies late;
        int answered = 0;
        client.currentUser([&](const QDBusMessage &) {
            ++answered;
            // The round trip that answered is over: this one goes out again.
            client.currentUser(late.collector());
        });
        QVERIFY(waitFor([&] { return late.messages.size() == 1; }));
        QCOMPARE(answered, 1);
        QCOMPARE(m_userManager.calls.size(), 2);
    }

    void errorReachesEveryCaller()
    {
        UserManagerClient client;
        m_userManager.mode = FakeUserManager::Fail;
        Replies replies;
        for (int i = 0; i < Callers; ++i)
            client.currentUser(replies.collector());
        QVERIFY(waitFor([&] { return replies.messages.size() == Callers; }));
        for (const QDBusMessage &reply : qAsConst(replies.messages)) {
            QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
            QCOMPARE(reply.errorName(), FailedError);
        }
        QCOMPARE(m_userManager.calls.size(), 1);
    }

    void timeOutReachesEveryCaller()
    {
        UserManagerClient client;
        client.setTimeout(ShortTimeout);
        m_userManager.mode = FakeUserManager::Hold;
        Replies replies;
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < Callers; ++i)
            client.currentUser(replies.collector());
        QVERIFY(waitFor([&] { return replies.messages.size() == Callers; }));
        QVERIFY(timer.elapsed() >= ShortTimeout - 50);
        for (const QDBusMessage &reply : qAsConst(replies.messages)) {
            QCOMPARE(reply.type(), QDBusMessage::ErrorMessage);
            QCOMPARE(reply.errorName(), QDBusError::errorString(QDBusError::NoReply));
        }
        QCOMPARE(m_userManager.calls.size(), 1);
        // The peer's late answer reaches nobody.
        m_userManager.releaseHeld();
        settle();
        QCOMPARE(replies.messages.size(), Callers);
    }

    void missingPeerReachesEveryCaller()
    {
        QDBusConnection(PeerConnection).unregisterService(UserManagerService);
        auto reclaim = qScopeGuard([] { QDBusConnection(PeerConnection).registerService(UserManagerService); });
        UserManagerClient client;
        Replies replies;
        for (int i = 0; i < Callers; ++i)
            client.currentUser(replies.collector());
        QVERIFY(waitFor([&] { return replies.messages.size() == Callers; }));
        for (const QDBusMessage &reply : qAsConst(replies.messages))
            QCOMPARE(reply.errorName(), QDBusError::errorString(QDBusError::ServiceUnknown));
    }

    void nothingIsAnsweredOnceTheClientHasGone()
    {
        m_userManager.mode = FakeUserManager::Hold;
        Replies replies;
        {
            UserManagerClient client;
            client.currentUser(replies.collector());
            QVERIFY(waitFor([this] { return m_userManager.calls.size() == 1; }));
        }
        m_userManager.releaseHeld();
        settle();
        QVERIFY(replies.messages.isEmpty());
    }

private:
    FakeUserManager m_userManager;
};

QTEST_GUILESS_MAIN(TestUserManagerClient)
#include "tst_usermanagerclient.moc"
