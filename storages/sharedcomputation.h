// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_SHAREDCOMPUTATION_H
#define PLINTHD_SHAREDCOMPUTATION_H

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

#include <functional>
#include <mutex>
#include <vector>

class QThreadPool;

// Runs the storage computations on the worker pool and hands their results to
// the main thread. Workers compute; the main thread talks: a computation never
// touches the bus, its result is queued back to this object, whose answers
// send the replies.
//
// Identical computations in flight are shared: a caller asking for what is
// being computed (same kind, same key: the same query for the same user)
// gets that computation's result instead of starting another walk of the same
// trees, so an answer is at most one computation old. Each kind has at most
// `maxPerKind` computations under way; a caller with another key past that
// bound waits, still holding its place, until one of its kind finishes, and
// is then started (or joins an identical one that waits with it). Nobody is
// turned away or dropped: every caller is answered once.
//
// Main thread only, but for the work itself. Computations still queued when
// this object goes are not answered.
class SharedComputation : public QObject
{
    Q_OBJECT

public:
    using Work = std::function<QVariant()>;
    using Answer = std::function<void(const QVariant &result)>;

    SharedComputation(QThreadPool *pool, int maxPerKind, QObject *parent = nullptr);
    ~SharedComputation() override;

    // `work` runs on a worker unless an identical computation is under way or
    // waiting; `answer` gets the result on the main thread (an invalid value
    // when the work failed).
    void run(int kind, const QString &key, const Work &work, const Answer &answer);

    // For tests and the debug log: computations started so far, and callers
    // waiting for an answer now.
    quint64 started() const;
    int waitingCallers() const;

private slots:
    // On the main thread: answers the callers of every computation that has
    // finished since the last time.
    void takeFinished();

private:
    class Task;
    struct Finished
    {
        int kind;
        QString key;
        QVariant result;
    };
    struct Computation
    {
        Work work;
        QVector<Answer> answers;
    };
    struct KindQueue
    {
        QHash<QString, Computation> running;
        QHash<QString, Computation> waiting;
        QStringList waitingOrder;
    };

    void start(int kind, const QString &key, const Computation &computation);
    void handBack(const Finished &finished);
    void finish(int kind, const QString &key, const QVariant &result);

    QThreadPool *const m_pool;
    const int m_maxPerKind;
    QHash<int, KindQueue> m_kinds;
    quint64 m_started = 0;
    // Results the workers have handed back and the main thread not yet taken.
    std::mutex m_finishedLock;
    std::vector<Finished> m_finished;

    Q_DISABLE_COPY(SharedComputation)
};

#endif // PLINTHD_SHAREDCOMPUTATION_H
