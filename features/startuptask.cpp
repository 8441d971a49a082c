// SPDX-License-Identifier: BSD-3-Clause
#include "startuptask.h"

#include <system_error>

StartupTask::StartupTask(const std::function<void()> &work)
{
    try {
        m_thread = std::thread(work);
    } catch (const std::system_error &) {
        work();
    }
}

StartupTask::~StartupTask()
{
    wait();
}

void StartupTask::wait()
{
    if (m_thread.joinable())
        m_thread.join();
}
