// SPDX-License-Identifier: BSD-3-Clause
// StoragesService on a private system bus (PRIVATE_BUS in CMakeLists): the
// delayed replies from the pool, seen from a client connection of its own.
#include "storagesservice.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QSemaphore>
#include <QThreadPool>
#include <QtTest>

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

    void synchronousMethodsAnswerBeforePendingQuery()
    {
        QThreadPool *pool = QThreadPool::globalInstance();
        QVERIFY(pool->waitForDone(5000));
        pool->setMaxThreadCount(1);
        QSemaphore started;
        QSemaphore release;
        pool->start(new Blocker(&started, &release));
        // A failed check must not leave the pool blocked for the next tests.
        auto releaseOnExit = qScopeGuard([&release] {
            if (release.available() == 0)
                release.release();
        });
        QVERIFY(started.tryAcquire(1, 5000));

        QDBusPendingCall query = m_client->asyncCall(call(QStringLiteral("getExternalStorageInfo")));
        QDBusPendingCall drives = m_client->asyncCall(call(QStringLiteral("getExternalStorageDrivesInfo")));
        QDBusPendingCall quota = m_client->asyncCall(call(QStringLiteral("getUsersQuotaInfo")));
        QTRY_VERIFY_WITH_TIMEOUT(drives.isFinished() && quota.isFinished(), 10000);
        QCOMPARE(drives.reply().signature(), QStringLiteral("aa{sv}"));
        QCOMPARE(quota.reply().signature(), QStringLiteral("a{sa{sv}}"));
        QTest::qWait(100);
        QVERIFY(!query.isFinished());

        release.release();
        QTRY_VERIFY_WITH_TIMEOUT(query.isFinished(), 10000);
        releaseOnExit.dismiss();
        QCOMPARE(query.reply().signature(), QStringLiteral("a{sv}"));
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

    QObject m_parent;
    StoragesService *m_service = nullptr;
    QDBusConnection *m_client = nullptr;
};

QTEST_GUILESS_MAIN(TestStoragesService)
#include "tst_storagesservice.moc"
