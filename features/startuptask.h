// SPDX-License-Identifier: BSD-3-Clause
#ifndef PLINTHD_STARTUPTASK_H
#define PLINTHD_STARTUPTASK_H

#include <QtGlobal>

#include <functional>
#include <thread>

// Work of the daemon's start that nothing else of the start needs right away
// (loading a library, reading a configuration): it runs on a thread of its
// own from the moment the task is made, beside the probes that wait for
// their children and the bus, and wait() joins it. It must touch nothing the
// constructing thread uses meanwhile; what it leaves behind belongs to that
// thread again once wait() has returned. When no thread can be had (the
// process is at its limit) the work is done at once, in the constructor.
class StartupTask
{
public:
    explicit StartupTask(const std::function<void()> &work);
    ~StartupTask();

    void wait();

private:
    std::thread m_thread;

    Q_DISABLE_COPY(StartupTask)
};

#endif // PLINTHD_STARTUPTASK_H
