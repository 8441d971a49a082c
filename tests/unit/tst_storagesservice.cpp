// SPDX-License-Identifier: BSD-3-Clause
// StoragesService on a private system bus (PRIVATE_BUS in CMakeLists): the
// delayed replies of computations on the pool, seen from a client connection
// of its own. No user manager is on the bus: the queries that need the
// current user are answered without it, as they must be.
#include "sharedcomputation.h"
#include "storagesservice.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QSemaphore>
#include <QThreadPool>
#include <QtTest>

#include <functional>
#include <memory>

namespace {

const QString Service = QStringLiteral("org.norvu.plinth");
const QString Path = QStringLiteral("/org/norvu/plinth/Storages");
const QString Interface = QStringLiteral("org.norvu.plinth.Storages");

// Holds one pool thread until released, so that queries queue behind it.
class Blocker : public QRunnable
{
public:
    explicit Blocker(QSemaphore *started, QSemaphore *release)
        : m_started(started), m_release(release) {}
    void run() override
    {
        m_started->release();
        m_release->acquire();
    }

private:
    QSemaphore *m_started;
    QSemaphore *m_release;
};

} // namespace

class TestStoragesService : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::systemBus().isConnected(), "needs a system bus");
        // As the daemon's entry does before anything else.
        PlinthTypes::registerQuotaInfoMap();
        m_service = new StoragesService(&m_parent);
        QVERIFY(m_service->isRegistered());
        m_client = new QDBusConnection(QDBusConnection::connectToBus(QDBusConnection::SystemBus,
                                                                      QStringLiteral("client")));
        QVERIFY(m_client->isConnected());
    }

    void cleanupTestCase()
    {
        QThreadPool::globalInstance()->waitForDone();
        delete m_service;
        delete m_client;
        QDBusConnection::disconnectFromBus(QStringLiteral("client"));
    }

    void cleanup()
    {
        QThreadPool::globalInstance()->setMaxThreadCount(QThread::idealThreadCount());
    }

    void inProcessCallStartsNothing_data()
    {
        QTest::addColumn<QByteArray>("method");
        QTest::newRow("internal") << QByteArray("getInternalStorageInfo");
        QTest::newRow("user partition") << QByteArray("getInternalUserPartitionInfo");
        QTest::newRow("external") << QByteArray("getExternalStorageInfo");
        QTest::newRow("system") << QByteArray("getSystemStorageInfo");
    }

    void inProcessCallStartsNothing()
    {
        QFETCH(QByteArray, method);
        QThreadPool *pool = QThreadPool::globalInstance();
        QVERIFY(pool->waitForDone(5000));
        QVariantMap result{{QStringLiteral("sentinel"), true}};
        QVERIFY(QMetaObject::invokeMethod(m_service, method.constData(), Qt::DirectConnection,
                                          Q_RETURN_ARG(QVariantMap, result)));
        QVERIFY(result.isEmpty());
        // A started task counts as active from QThreadPool::start() until its
        // body has finished, and a body that sizes partitions takes far longer
        // than these two lines.
        QCOMPARE(pool->activeThreadCount(), 0);
        QVERIFY(pool->waitForDone(0));
    }

    void replyHasOneMapArgument_data()
    {
        inProcessCallStartsNothing_data();
    }

    void replyHasOneMapArgument()
    {
        QFETCH(QByteArray, method);
        const QDBusMessage reply = answer(m_client->asyncCall(call(QString::fromLatin1(method))));
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
        QCOMPARE(reply.signature(), QStringLiteral("a{sv}"));
        QCOMPARE(reply.arguments().size(), 1);
    }

    void externalSummaryOverTheBus()
    {
        QDBusPendingReply<QVariantMap> reply = m_client->asyncCall(call(QStringLiteral("getExternalStorageInfo")));
        QTRY_VERIFY_WITH_TIMEOUT(reply.isFinished(), 10000);
        QVERIFY(reply.isValid());
        const QVariantMap summary = reply.value();
        QCOMPARE(summary.value(QStringLiteral("deviceLabel")).toString(), QStringLiteral("external storage"));
        QVERIFY(summary.contains(QStringLiteral("countMountedPartitions")));
    }

    void quickCallsEachGetTheirOwnReply()
    {
        QVector<QDBusPendingCall> calls;
        for (int i = 0; i < 2; ++i)
            calls.append(m_client->asyncCall(call(QStringLiteral("getExternalStorageInfo"))));
        // QtDBus pairs each reply with its call by the reply serial; a dropped
        // or merged reply leaves one call waiting into its time-out.
        for (QDBusPendingCall &pending : calls) {
            QTRY_VERIFY_WITH_TIMEOUT(pending.isFinished(), 10000);
            QVERIFY(!pending.isError());
            QCOMPARE(pending.reply().type(), QDBusMessage::ReplyMessage);
            QCOMPARE(pending.reply().arguments().size(), 1);
        }
    }

    // Every method needs a medium: none answers in the dispatch, all answer
    // once the pool has computed, and the dispatch goes on meanwhile.
    void everyMethodAnswersOnceComputed()
    {
        QSemaphore release;
        auto releaseOnExit = blockThePool(&release);
        QVERIFY(releaseOnExit);

        const QStringList methods{"getInternalStorageInfo", "getInternalUserPartitionInfo", "getExternalStorageInfo",
                                  "getExternalStorageDrivesInfo", "getSystemStorageInfo", "getUsersQuotaInfo"};
        QVector<QDBusPendingCall> calls;
        for (const QString &method : methods)
            calls.append(m_client->asyncCall(call(method)));
        // Introspection is answered by the dispatch itself.
        const QDBusMessage introspection = answer(m_client->asyncCall(QDBusMessage::createMethodCall(
                Service, Path, QStringLiteral("org.freedesktop.DBus.Introspectable"), QStringLiteral("Introspect"))));
        QCOMPARE(introspection.type(), QDBusMessage::ReplyMessage);
        QTest::qWait(100);
        for (const QDBusPendingCall &pending : qAsConst(calls))
            QVERIFY(!pending.isFinished());

        release.release();
        const QStringList signatures{"a{sv}", "a{sv}", "a{sv}", "aa{sv}", "a{sv}", "a{sa{sv}}"};
        for (int i = 0; i < calls.size(); ++i) {
            const QDBusMessage reply = answer(calls.at(i));
            QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
            QCOMPARE(reply.signature(), signatures.at(i));
        }
    }

    void identicalQueriesInFlightShareOneComputation()
    {
        auto *computations = m_service->findChild<SharedComputation *>();
        QVERIFY(computations);
        QSemaphore release;
        auto releaseOnExit = blockThePool(&release);
        QVERIFY(releaseOnExit);

        const quint64 startedBefore = computations->started();
        constexpr int Callers = 50;
        QVector<QDBusPendingCall> calls;
        for (int i = 0; i < Callers; ++i)
            calls.append(m_client->asyncCall(call(QStringLiteral("getSystemStorageInfo"))));
        QTRY_COMPARE_WITH_TIMEOUT(computations->waitingCallers(), Callers, 10000);
        QCOMPARE(computations->started() - startedBefore, quint64(1));

        release.release();
        const QDBusMessage first = answer(calls.at(0));
        QCOMPARE(first.type(), QDBusMessage::ReplyMessage);
        for (const QDBusPendingCall &pending : qAsConst(calls)) {
            const QDBusMessage reply = answer(pending);
            QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
            QCOMPARE(qdbus_cast<QVariantMap>(reply.arguments().value(0)),
                     qdbus_cast<QVariantMap>(first.arguments().value(0)));
        }
        QCOMPARE(computations->started() - startedBefore, quint64(1));
    }

private:
    static QDBusMessage call(const QString &method)
    {
        return QDBusMessage::createMethodCall(Service, Path, Interface, method);
    }

    // The service answers on this thread's event loop, so a client waiting
    // here must keep the loop running rather than block.
    static QDBusMessage answer(QDBusPendingCall pending)
    {
        QElapsedTimer timer;
        timer.start();
        while (!pending.isFinished() && timer.elapsed() < 10000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        return pending.reply();
    }

    // Takes the pool's one thread until `release` is released; the returned
    // guard releases it should the test fail first. Empty when the pool could
    // not be blocked.
    static std::unique_ptr<QSemaphore, std::function<void(QSemaphore *)>> blockThePool(QSemaphore *release)
    {
        QThreadPool *pool = QThreadPool::globalInstance();
        if (!pool->waitForDone(5000))
            return {};
        pool->setMaxThreadCount(1);
        QSemaphore started;
        pool->start(new Blocker(&started, release));
        std::unique_ptr<QSemaphore, std::function<void(QSemaphore *)>> guard(release, [](QSemaphore *semaphore) {
            if (semaphore->available() == 0)
                semaphore->release();
        });
        if (!started.tryAcquire(1, 5000))
            return {};
        return guard;
    }

    QObject m_parent;
    StoragesService *m_service = nullptr;
    QDBusConnection *m_client = nullptr;
};

QTEST_GUILESS_MAIN(TestStoragesService)
#include "tst_storagesservice.moc"
