// SPDX-License-Identifier: BSD-3-Clause
#include "sharedcomputation.h"

#include "logging.h"
#include "threadhandoff.h"

#include <QRunnable>
#include <QThreadPool>

#include <exception>

// One computation on its way to a worker. ThreadSanitizer cannot see the
// locks inside Qt's pool, so the hand-over is marked on the task, after it has
// been made in full.
class SharedComputation::Task : public QRunnable
{
public:
    Task(SharedComputation *owner, int kind, const QString &key, const Work &work)
        : m_owner(owner), m_kind(kind), m_key(key), m_work(work)
    {
    }

    void start(QThreadPool *pool)
    {
        PLINTHD_HANDOFF_RELEASE(this);
        pool->start(this);
    }

    void run() override
    {
        PLINTHD_HANDOFF_ACQUIRE(this);
        QVariant result;
        try {
            result = m_work();
        } catch (const std::exception &error) {
            qCWarning(lcPlinthd) << "Storage computation failed:" << m_key << error.what();
        } catch (...) {
            qCWarning(lcPlinthd) << "Storage computation failed:" << m_key;
        }
        m_owner->handBack({m_kind, m_key, result});
    }

private:
    SharedComputation *const m_owner;
    const int m_kind;
    const QString m_key;
    const Work m_work;
};

SharedComputation::SharedComputation(QThreadPool *pool, int maxPerKind, QObject *parent)
    : QObject(parent), m_pool(pool), m_maxPerKind(qMax(1, maxPerKind))
{
}

// Deleted after the pool has run dry: every worker's last use of what its
// work touched came before it handed its result back under the lock.
SharedComputation::~SharedComputation()
{
    std::lock_guard<std::mutex> lock(m_finishedLock);
}

void SharedComputation::run(int kind, const QString &key, const Work &work, const Answer &answer)
{
    KindQueue &queue = m_kinds[kind];
    const auto running = queue.running.find(key);
    if (running != queue.running.end()) {
        running->answers.append(answer);
        return;
    }
    const auto waiting = queue.waiting.find(key);
    if (waiting != queue.waiting.end()) {
        waiting->answers.append(answer);
        return;
    }
    const Computation computation{work, {answer}};
    if (queue.running.size() < m_maxPerKind) {
        start(kind, key, computation);
        return;
    }
    qCDebug(lcPlinthd) << "Storage computation waits for one of its kind to finish:" << key;
    queue.waiting.insert(key, computation);
    queue.waitingOrder.append(key);
}

quint64 SharedComputation::started() const
{
    return m_started;
}

int SharedComputation::waitingCallers() const
{
    int callers = 0;
    for (const KindQueue &queue : m_kinds) {
        for (const Computation &computation : queue.running)
            callers += computation.answers.size();
        for (const Computation &computation : queue.waiting)
            callers += computation.answers.size();
    }
    return callers;
}

void SharedComputation::start(int kind, const QString &key, const Computation &computation)
{
    m_kinds[kind].running.insert(key, computation);
    ++m_started;
    qCDebug(lcPlinthd) << "Storage computation started:" << key << "number" << m_started;
    (new Task(this, kind, key, computation.work))->start(m_pool);
}

// On the worker. The daemon waits for the pool to run dry before it deletes
// this object, so it is still there to take the result. The list is guarded
// by a standard mutex, which ThreadSanitizer sees, unlike Qt's event queue;
// the main thread is woken under it (once for a batch), so that the
// destructor's lock comes after this object's last use on the worker.
void SharedComputation::handBack(const Finished &finished)
{
    std::lock_guard<std::mutex> lock(m_finishedLock);
    m_finished.push_back(finished);
    if (m_finished.size() == 1)
        QMetaObject::invokeMethod(this, "takeFinished", Qt::QueuedConnection);
}

void SharedComputation::takeFinished()
{
    std::vector<Finished> finished;
    {
        std::lock_guard<std::mutex> lock(m_finishedLock);
        finished.swap(m_finished);
    }
    for (const Finished &one : finished)
        finish(one.kind, one.key, one.result);
}

void SharedComputation::finish(int kind, const QString &key, const QVariant &result)
{
    KindQueue &queue = m_kinds[kind];
    // Taken out before anyone is answered: a caller that comes after this
    // result starts a computation of its own.
    const Computation done = queue.running.take(key);
    if (!queue.waitingOrder.isEmpty()) {
        const QString next = queue.waitingOrder.takeFirst();
        start(kind, next, queue.waiting.take(next));
    }
    for (const Answer &answer : done.answers)
        answer(result);
}
