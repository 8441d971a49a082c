// SPDX-License-Identifier: BSD-3-Clause
// UserManagerClient on a private system bus (PRIVATE_BUS in CMakeLists):
// many threads asking at once, with the user manager missing and present.
//
// The first case is the regression test of a crash: while every thread made
// its blocking calls on the daemon's one shared connection, two error replies
// that arrived at once had QtDBus free the same error text twice. Here that
// happened within seconds; the AddressSanitizer build named it at once.
#include "usermanagerclient.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusContext>
#include <QDBusError>
#include <QDBusMessage>
#include <QEventLoop>
#include <QMutex>
#include <QSet>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

const QString UserManagerService = QStringLiteral("org.brisaos.usermanager");
constexpr int OtherThreads = 4;
// Enough error replies for two of them to meet in the old code nearly every
// run: about two seconds in the release build.
constexpr int ErrorCallsPerThread = 10000;
constexpr int AnsweredCallsPerThread = 200;
constexpr uint OwnerUid = 100000;

// The user manager's two methods. It notes on which connection each call came.
class FakeUserManager : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.brisaos.usermanager")

public:
    QSet<QString> senders() const
    {
        QMutexLocker locker(&m_lock);
        return m_senders;
    }

public slots:
    uint currentUser()
    {
        note();
        return OwnerUid;
    }

    QString getUserLocale(uint uid)
    {
        note();
        return uid == OwnerUid ? QStringLiteral("en_US.utf8") : QString();
    }

private:
    void note()
    {
        QMutexLocker locker(&m_lock);
        m_senders.insert(message().service());
    }

    mutable QMutex m_lock;
    QSet<QString> m_senders;
};

// The user manager on a plain thread of its own, with its own connection and
// event loop: the threads that ask block on their calls, the main thread
// among them. Everything it made is gone when stop() returns, and the thread
// joined, so that ThreadSanitizer sees every hand-over.
class UserManagerPeer
{
public:
    UserManagerPeer()
        : m_thread([this] { serve(); })
    {
        while (!m_ready)
            QThread::msleep(1);
    }

    ~UserManagerPeer()
    {
        if (m_thread.joinable())
            stop();
    }

    // Ends the peer; returns the unique names of the connections that called it.
    QSet<QString> stop()
    {
        QMetaObject::invokeMethod(m_loop, "quit", Qt::QueuedConnection);
        m_thread.join();
        return m_senders;
    }

private:
    void serve()
    {
        const QString connectionName = QStringLiteral("user-manager");
        {
            QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, connectionName);
            FakeUserManager manager;
            QEventLoop loop;
            bus.registerObject(QStringLiteral("/"), &manager, QDBusConnection::ExportAllSlots);
            bus.registerService(UserManagerService);
            m_loop = &loop;
            m_ready = true;
            loop.exec();
            bus.unregisterService(UserManagerService);
            bus.unregisterObject(QStringLiteral("/"));
            m_senders = manager.senders();
        }
        QDBusConnection::disconnectFromBus(connectionName);
    }

    QEventLoop *m_loop = nullptr;
    std::atomic<bool> m_ready{false};
    QSet<QString> m_senders;
    std::thread m_thread;
};

// Runs `body` on `count` plain threads (ThreadSanitizer sees them start and
// end) while the main thread runs `mainBody` until they are done.
template<typename Body, typename MainBody>
void runAtOnce(int count, Body body, MainBody mainBody)
{
    std::atomic<int> running{count};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            body();
            --running;
        });
    }
    while (running > 0)
        mainBody();
    for (auto &thread : threads)
        thread.join();
}

} // namespace

class TestUserManagerClient : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::systemBus().isConnected(), "needs a system bus");
    }

    void errorRepliesToManyThreadsAtOnce()
    {
        QVERIFY(!QDBusConnection::systemBus().interface()->isServiceRegistered(UserManagerService).value());
        UserManagerClient client;
        std::atomic<int> wrong{0};
        auto ask = [&] {
            const QDBusMessage reply = client.currentUser();
            if (reply.type() != QDBusMessage::ErrorMessage
                || reply.errorName() != QDBusError::errorString(QDBusError::ServiceUnknown))
                ++wrong;
        };
        int mainCalls = 0;
        runAtOnce(OtherThreads, [&] {
            for (int i = 0; i < ErrorCallsPerThread; ++i)
                ask();
        }, [&] {
            ask();
            ++mainCalls;
        });
        QCOMPARE(wrong.load(), 0);
        QVERIFY(mainCalls > 0);
    }

    void answersToManyThreadsAtOnce()
    {
        UserManagerPeer peer;
        UserManagerClient client;
        std::atomic<int> wrong{0};
        auto ask = [&] {
            const QDBusMessage uid = client.currentUser();
            const QDBusMessage locale = client.userLocale(uid.arguments().value(0).toUInt());
            if (uid.type() != QDBusMessage::ReplyMessage || uid.arguments().value(0).toUInt() != OwnerUid
                || locale.arguments().value(0).toString() != QStringLiteral("en_US.utf8"))
                ++wrong;
        };
        runAtOnce(OtherThreads, [&] {
            for (int i = 0; i < AnsweredCallsPerThread; ++i)
                ask();
        }, ask);
        QCOMPARE(wrong.load(), 0);

        // The main thread asked on the shared connection; the other threads on
        // one connection of the client's own, never the shared one.
        const QSet<QString> senders = peer.stop();
        QCOMPARE(senders.size(), 2);
        QVERIFY(senders.contains(QDBusConnection::systemBus().baseService()));
    }
};

QTEST_GUILESS_MAIN(TestUserManagerClient)
#include "tst_usermanagerclient.moc"
