// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <deque>

namespace Nubra {

// Decides when a transfer is too slow to go on: fewer than minBytesPerSecond
// on average over the last windowMs. libcurl's own low-speed check averages
// over a few seconds of history, so after a fast start it notices a stall
// only seconds late; this one looks at exactly the last window and, fed at
// least once a second (curl calls its progress function that often while a
// low-speed limit is set), fires within about a second of it.
class StallDetector {
public:
    // windowMs 0: never fires.
    void configure(qint64 windowMs, qint64 minBytesPerSecond);
    void reset();
    bool isEnabled() const { return m_windowMs > 0; }
    qint64 windowMs() const { return m_windowMs; }
    qint64 minBytesPerSecond() const { return m_minBytesPerSecond; }
    // Feeds the bytes moved so far (both directions, as curl counts them for
    // the current response) at time nowMs (any steady clock); returns true
    // when the transfer is to be stopped.
    bool update(qint64 nowMs, qint64 reported);

private:
    struct Sample {
        qint64 ms;
        qint64 bytes;
    };
    qint64 m_windowMs = 0;
    qint64 m_minBytesPerSecond = 0;
    std::deque<Sample> m_samples;
    qint64 m_lastReported = 0;
    qint64 m_earlier = 0;
};

} // namespace Nubra
