// SPDX-License-Identifier: MIT
#include "transfer/BackgroundSha256.h"

#include "transfer/Sha256.h"

#include <utility>

namespace Nubra {

BackgroundSha256::BackgroundSha256()
    : m_worker([this] { run(); })
{
}

BackgroundSha256::~BackgroundSha256()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
    }
    m_changed.notify_all();
    m_worker.join();
}

void BackgroundSha256::reset()
{
    m_batch.clear();
    std::unique_lock<std::mutex> lock(m_mutex);
    // A chunk the worker is hashing right now is subtracted by the worker.
    for (const QByteArray& chunk : m_queue)
        m_queued -= chunk.size();
    m_queue.clear();
    m_resetWanted = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return !m_resetWanted; });
}

void BackgroundSha256::update(const char* data, size_t size)
{
    if (size == 0)
        return;
    if (m_batch.capacity() < kBatch) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_spare.empty()) {
                m_batch = std::move(m_spare.front());
                m_spare.pop_front();
            }
        }
        m_batch.reserve(kBatch); // sets "capacity reserved": resize(0) keeps the buffer
    }
    m_batch.append(data, int(size));
    if (m_batch.size() >= kBatch)
        push(std::exchange(m_batch, QByteArray()));
}

void BackgroundSha256::push(QByteArray chunk)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_queued < kMaxQueued; });
    m_queued += chunk.size();
    m_queue.push_back(std::move(chunk));
    m_changed.notify_all();
}

QByteArray BackgroundSha256::finish()
{
    if (!m_batch.isEmpty())
        push(std::exchange(m_batch, QByteArray()));
    std::unique_lock<std::mutex> lock(m_mutex);
    m_finishWanted = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return !m_finishWanted; });
    return m_digest;
}

void BackgroundSha256::run()
{
    Sha256 hash;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_quit || m_resetWanted || !m_queue.empty() || m_finishWanted; });
        if (m_quit)
            return;
        if (m_resetWanted) {
            hash.reset();
            m_resetWanted = false;
            m_changed.notify_all();
            continue;
        }
        if (!m_queue.empty()) {
            QByteArray chunk = std::move(m_queue.front());
            m_queue.pop_front();
            lock.unlock();
            hash.update(chunk.constData(), size_t(chunk.size()));
            lock.lock();
            m_queued -= chunk.size();
            if (m_spare.size() < 4) {
                chunk.resize(0);
                m_spare.push_back(std::move(chunk));
            }
            m_changed.notify_all();
            continue;
        }
        // Queue drained and a digest asked for.
        m_digest = hash.hexDigest();
        hash.reset();
        m_finishWanted = false;
        m_changed.notify_all();
    }
}

} // namespace Nubra
