// SPDX-License-Identifier: BSD-3-Clause
// Checks the ThreadSanitizer set-up itself: a counter that two threads bump
// in turns under a QMutex must pass without a report (the lock is visible to
// the tool), and the same counter without the lock must be reported (the tool
// is awake). Run as "locked" or "unlocked".
#include <QByteArray>
#include <QMutex>
#include <QMutexLocker>

#include <cstdio>
#include <thread>

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
    // A plain thread: its start and join are visible to the tool, so only
    // the lock stands between the two threads' increments.
    std::thread other([locked] { bump(locked); });
    bump(locked);
    other.join();
    std::printf("counter %d\n", counter);
    return 0;
}
