// SPDX-License-Identifier: MIT
#include "http/StallDetector.h"

namespace Nubra {

namespace {
// Samples closer than this are not kept: a window of 30 s then holds at most
// a few hundred, however often curl reports.
constexpr qint64 kSampleSpacingMs = 100;
} // namespace

void StallDetector::configure(qint64 windowMs, qint64 minBytesPerSecond)
{
    m_windowMs = windowMs > 0 ? windowMs : 0;
    m_minBytesPerSecond = minBytesPerSecond > 0 ? minBytesPerSecond : 1;
    reset();
}

void StallDetector::reset()
{
    m_samples.clear();
    m_lastReported = 0;
    m_earlier = 0;
}

bool StallDetector::update(qint64 nowMs, qint64 reported)
{
    if (m_windowMs == 0)
        return false;
    // curl counts each response anew (a redirect, a retry): keep a total
    // that only grows.
    if (reported < m_lastReported)
        m_earlier += m_lastReported;
    m_lastReported = reported;
    const qint64 bytesMoved = m_earlier + reported;
    if (m_samples.empty() || nowMs - m_samples.back().ms >= kSampleSpacingMs)
        m_samples.push_back({nowMs, bytesMoved});
    else
        m_samples.back().bytes = bytesMoved; // same time slot: latest count
    // Keep one sample at or before the start of the window: the anchor the
    // window's bytes are counted from.
    while (m_samples.size() >= 2 && m_samples[1].ms <= nowMs - m_windowMs)
        m_samples.pop_front();
    const Sample& anchor = m_samples.front();
    if (nowMs - anchor.ms < m_windowMs)
        return false; // not watched for a whole window yet
    // Scaled to the anchor's real age, which can exceed the window by the
    // gap between two reports.
    const qint64 moved = bytesMoved - anchor.bytes;
    return moved * 1000 < m_minBytesPerSecond * (nowMs - anchor.ms);
}

} // namespace Nubra
