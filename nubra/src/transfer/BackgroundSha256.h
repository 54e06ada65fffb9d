// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace Nubra {

// SHA-256 computed on a helper thread, so that hashing a download overlaps
// with receiving it instead of adding to it. The thread only hashes: it
// touches no Qt object and emits nothing. Queued bytes are bounded
// (kMaxQueued); update() waits when the hasher falls that far behind, which
// keeps memory constant whatever the file size.
class BackgroundSha256 {
public:
    static constexpr qint64 kMaxQueued = 8 * 1024 * 1024;
    // Bytes gathered before they go to the worker: fewer, larger hand-overs.
    static constexpr int kBatch = 1024 * 1024;

    BackgroundSha256();
    ~BackgroundSha256();
    BackgroundSha256(const BackgroundSha256&) = delete;
    BackgroundSha256& operator=(const BackgroundSha256&) = delete;

    // Drops queued bytes and starts a new digest.
    void reset();
    void update(const char* data, size_t size);
    // Waits for the queued bytes and returns the lower-case hex digest of
    // everything since the last reset(); then starts a new digest.
    QByteArray finish();

private:
    void run();
    void push(QByteArray chunk);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<QByteArray> m_queue;
    qint64 m_queued = 0;
    bool m_resetWanted = false;
    bool m_quit = false;
    QByteArray m_digest;      // set by the worker when asked to finish
    bool m_finishWanted = false;
    std::deque<QByteArray> m_spare; // hashed buffers kept for reuse (no fresh pages per batch)
    QByteArray m_batch;       // caller's thread only
    std::thread m_worker;
};

} // namespace Nubra
