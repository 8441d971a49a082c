// SPDX-License-Identifier: BSD-3-Clause
// SharedComputation on a pool of the test's own: identical computations in
// flight are shared, the number under way per kind is bounded, and every
// caller is answered once, on the main thread, past the bound too.
#include "sharedcomputation.h"

#include <QElapsedTimer>
#include <QThread>
#include <QThreadPool>
#include <QtTest>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>

namespace {

constexpr int WaitMilliseconds = 10000;
constexpr int MaxPerKind = 2;
constexpr int SystemKind = 3;
constexpr int QuotaKind = 5;

// Holds every piece of work until opened. A standard mutex, which
// ThreadSanitizer sees, unlike the locks inside Qt.
class Gate
{
public:
    void open()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

    void pass()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_arrived;
        m_changed.wait(lock, [this] { return m_open; });
    }

    int arrived()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_arrived;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
    int m_arrived = 0;
};

bool waitFor(const std::function<bool()> &condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < WaitMilliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return condition();
}

} // namespace

class TestSharedComputation : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_pool = new QThreadPool;
        m_pool->setMaxThreadCount(4);
        m_gate = new Gate;
        m_computations = new SharedComputation(m_pool, MaxPerKind);
        m_answers.clear();
    }

    void cleanup()
    {
        m_gate->open();
        m_pool->waitForDone();
        delete m_computations;
        delete m_pool;
        delete m_gate;
    }

    void identicalCallersShareOneComputation()
    {
        for (int i = 0; i < 50; ++i)
            run(SystemKind, QStringLiteral("system"), i);
        QVERIFY(waitFor([this] { return m_gate->arrived() == 1; }));
        QCOMPARE(m_computations->started(), quint64(1));
        QCOMPARE(m_computations->waitingCallers(), 50);

        m_gate->open();
        QVERIFY(waitFor([this] { return m_answers.size() == 50; }));
        for (const QVariant &answer : qAsConst(m_answers))
            QCOMPARE(answer, QVariant(QStringLiteral("system computed first by 0")));
        QCOMPARE(m_computations->started(), quint64(1));
        QCOMPARE(m_computations->waitingCallers(), 0);
    }

    void callerAfterTheResultStartsAnother()
    {
        m_gate->open();
        run(SystemKind, QStringLiteral("system"), 1);
        QVERIFY(waitFor([this] { return m_answers.size() == 1; }));
        run(SystemKind, QStringLiteral("system"), 2);
        QVERIFY(waitFor([this] { return m_answers.size() == 2; }));
        QCOMPARE(m_computations->started(), quint64(2));
        QCOMPARE(m_answers.at(1), QVariant(QStringLiteral("system computed first by 2")));
    }

    void pastTheBoundCallersWaitAndAreAnswered()
    {
        const QStringList users{"100000", "100001", "100002", "100003"};
        for (const QString &user : users)
            run(QuotaKind, user, 0);
        // A caller of a waiting computation joins it rather than queueing again.
        run(QuotaKind, users.last(), 1);
        // Another kind has a bound of its own.
        run(SystemKind, QStringLiteral("system"), 2);
        QVERIFY(waitFor([this] { return m_gate->arrived() == MaxPerKind + 1; }));
        QTest::qWait(100);
        QCOMPARE(m_gate->arrived(), MaxPerKind + 1);
        QCOMPARE(m_computations->started(), quint64(MaxPerKind + 1));
        QCOMPARE(m_computations->waitingCallers(), 6);

        m_gate->open();
        QVERIFY(waitFor([this] { return m_answers.size() == 6; }));
        QCOMPARE(m_computations->started(), quint64(users.size() + 1));
        QCOMPARE(m_answers.count(QVariant(QStringLiteral("100003 computed first by 0"))), 2);
    }

    void failedWorkIsAnsweredWithNothing()
    {
        m_computations->run(
                SystemKind, QStringLiteral("broken"), []() -> QVariant { throw std::runtime_error("broken"); },
                [this](const QVariant &result) { m_answers.append(result); });
        QVERIFY(waitFor([this] { return m_answers.size() == 1; }));
        QVERIFY(!m_answers.at(0).isValid());
    }

    void answersComeOnTheMainThread()
    {
        m_gate->open();
        QThread *answeredOn = nullptr;
        m_computations->run(SystemKind, QStringLiteral("thread"), [] { return QVariant(true); },
                            [&answeredOn](const QVariant &) { answeredOn = QThread::currentThread(); });
        QVERIFY(waitFor([&answeredOn] { return answeredOn != nullptr; }));
        QCOMPARE(answeredOn, QThread::currentThread());
    }

private:
    // The work says which caller started it, so that sharing shows.
    void run(int kind, const QString &key, int caller)
    {
        Gate *gate = m_gate;
        m_computations->run(
                kind, key,
                [gate, key, caller] {
                    gate->pass();
                    return QVariant(QStringLiteral("%1 computed first by %2").arg(key).arg(caller));
                },
                [this](const QVariant &result) { m_answers.append(result); });
    }

    QThreadPool *m_pool = nullptr;
    Gate *m_gate = nullptr;
    SharedComputation *m_computations = nullptr;
    QVariantList m_answers;
};

QTEST_GUILESS_MAIN(TestSharedComputation)
#include "tst_sharedcomputation.moc"
