// SPDX-License-Identifier: MIT
#include "StopSignal.h"

#include <condition_variable>
#include <mutex>

namespace devcloud::StopSignal {

namespace {
std::mutex g_mutex;
std::condition_variable g_wake;
bool g_raised = false;
} // namespace

void raise()
{
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        g_raised = true;
    }
    g_wake.notify_all();
}

bool sleepFor(std::chrono::microseconds duration)
{
    std::unique_lock<std::mutex> lock(g_mutex);
    return !g_wake.wait_for(lock, duration, [] { return g_raised; });
}

} // namespace devcloud::StopSignal
