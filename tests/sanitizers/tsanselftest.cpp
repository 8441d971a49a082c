// Checks the ThreadSanitizer set-up itself: a counter that two threads bump
// in turns under a QMutex must pass without a report (the lock is visible to
// the tool), and the same counter without the lock must be reported (the tool
// is awake). Run as "locked" or "unlocked".
#include <QByteArray>
#include <QMutex>
#include <QMutexLocker>
#include <QThread>

#include <cstdio>

namespace {

int counter = 0;
QMutex counterLock;

void bump(bool locked)
{
    for (int i = 0; i < 20000; ++i) {
        if (locked) {
            QMutexLocker locker(&counterLock);
            ++counter;
        } else {
            ++counter;
        }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 2)
        return 2;
    const bool locked = QByteArray(argv[1]) == "locked";
    QThread *other = QThread::create([locked] { bump(locked); });
    other->start();
    bump(locked);
    other->wait();
    delete other;
    // QThread::wait() is invisible to the tool too; the lock orders the read
    // after the other thread's last increment.
    QMutexLocker locker(&counterLock);
    std::printf("counter %d\n", counter);
    return 0;
}
