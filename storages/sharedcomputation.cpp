// SPDX-License-Identifier: BSD-3-Clause
#include "sharedcomputation.h"

#include "logging.h"
#include "threadhandoff.h"

#include <QThreadPool>

#include <exception>
#include <memory>

namespace {

// What goes to the worker and comes back. ThreadSanitizer cannot see the
// locks inside Qt's pool and event queue, so both hand-overs are marked on
// this object.
struct Job
{
    SharedComputation::Work work;
    QVariant result;
};

} // namespace

SharedComputation::SharedComputation(QThreadPool *pool, int maxPerKind, QObject *parent)
    : QObject(parent), m_pool(pool), m_maxPerKind(qMax(1, maxPerKind))
{
}

// Deleted after the pool has run dry: every worker's last use of what its
// work touched comes before this.
SharedComputation::~SharedComputation()
{
    PLINTHD_HANDOFF_ACQUIRE(this);
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

    auto job = std::make_shared<Job>();
    job->work = computation.work;
    PLINTHD_HANDOFF_RELEASE(job.get());
    m_pool->start([this, job, kind, key] {
        PLINTHD_HANDOFF_ACQUIRE(job.get());
        try {
            job->result = job->work();
        } catch (const std::exception &error) {
            qCWarning(lcPlinthd) << "Storage computation failed:" << key << error.what();
        } catch (...) {
            qCWarning(lcPlinthd) << "Storage computation failed:" << key;
        }
        // The daemon waits for the pool to run dry before it deletes this
        // object, so it is still there to take the result.
        PLINTHD_HANDOFF_RELEASE(job.get());
        PLINTHD_HANDOFF_RELEASE(this);
        QMetaObject::invokeMethod(
                this,
                [this, job, kind, key] {
                    PLINTHD_HANDOFF_ACQUIRE(job.get());
                    finish(kind, key, job->result);
                },
                Qt::QueuedConnection);
    });
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
