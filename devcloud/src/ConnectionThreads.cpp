// SPDX-License-Identifier: MIT
#include "ConnectionThreads.h"

namespace devcloud {

ConnectionThreads::ConnectionThreads(size_t maxThreads)
    : m_maxThreads(maxThreads)
{
}

ConnectionThreads::~ConnectionThreads() { shutdown(); }

void ConnectionThreads::enqueue(std::function<void()> job)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_jobs.push_back(std::move(job));
    // A free thread takes it; otherwise a new one does, within the bound.
    if (m_idle >= m_jobs.size())
        m_wake.notify_one();
    else if (m_threads.size() < m_maxThreads)
        m_threads.emplace_back([this] { work(); });
}

void ConnectionThreads::work()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        ++m_idle;
        m_wake.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
        --m_idle;
        if (m_jobs.empty())
            return; // stopping, nothing left
        std::function<void()> job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        job();
        lock.lock();
    }
}

void ConnectionThreads::shutdown()
{
    std::vector<std::thread> threads;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        threads.swap(m_threads);
    }
    m_wake.notify_all();
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace devcloud
