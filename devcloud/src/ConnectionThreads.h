// SPDX-License-Identifier: MIT
#pragma once

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace devcloud {

// The HTTP server's workers: one thread per open connection, started when
// a connection arrives and no thread is free, up to maxThreads (then new
// connections wait for one). cpp-httplib's own pool has a fixed number of
// threads, and a connection holds its thread as long as it is open
// (kept alive between requests, or silent until the read time-out), so a
// few idle or silent connections starved every new one. Threads that became
// free stay for the next connection.
class ConnectionThreads : public httplib::TaskQueue {
public:
    explicit ConnectionThreads(size_t maxThreads);
    ~ConnectionThreads() override;

    void enqueue(std::function<void()> job) override;
    // Runs the queued jobs, then joins every thread.
    void shutdown() override;

private:
    void work();

    const size_t m_maxThreads;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_jobs;
    std::vector<std::thread> m_threads;
    size_t m_idle = 0;
    bool m_stopping = false;
};

} // namespace devcloud
