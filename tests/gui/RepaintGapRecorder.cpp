// SPDX-License-Identifier: MIT
#include "RepaintGapRecorder.h"

#include <BusyState.h>

#include <QApplication>
#include <QEvent>
#include <QWidget>

RepaintGapRecorder::RepaintGapRecorder(QWidget* window, BusyState* busy) : m_window(window)
{
    m_clock.start();
    connect(busy, &BusyState::activityStarted, this, &RepaintGapRecorder::start);
    connect(busy, &BusyState::activityFinished, this, &RepaintGapRecorder::finish);
    qApp->installEventFilter(this);
}

RepaintGapRecorder::~RepaintGapRecorder() { qApp->removeEventFilter(this); }

void RepaintGapRecorder::start(const QString& activity)
{
    m_current = Call{activity, 0, 0, 0};
    m_current.durationMs = m_clock.elapsed(); // the start, until finish()
    m_lastPaintMs = m_current.durationMs;
    m_recording = true;
}

void RepaintGapRecorder::finish()
{
    if (!m_recording)
        return;
    const qint64 now = m_clock.elapsed();
    m_current.longestGapMs = qMax(m_current.longestGapMs, now - m_lastPaintMs);
    m_current.durationMs = now - m_current.durationMs;
    m_recording = false;
    m_calls.append(m_current);
}

bool RepaintGapRecorder::eventFilter(QObject* watched, QEvent* event)
{
    if (m_recording && event->type() == QEvent::Paint && watched->isWidgetType()
        && static_cast<QWidget*>(watched)->window() == m_window) {
        const qint64 now = m_clock.elapsed();
        m_current.longestGapMs = qMax(m_current.longestGapMs, now - m_lastPaintMs);
        m_lastPaintMs = now;
        ++m_current.repaints;
    }
    return false;
}

qint64 RepaintGapRecorder::longestGapMs() const
{
    qint64 longest = 0;
    for (const Call& call : m_calls)
        longest = qMax(longest, call.longestGapMs);
    return longest;
}

QString RepaintGapRecorder::report() const
{
    QString text = QStringLiteral("| Blocking call | Duration (ms) | Repaints | Longest gap (ms) |\n|---|---:|---:|---:|\n");
    for (const Call& call : m_calls)
        text += QStringLiteral("| %1 | %2 | %3 | %4 |\n")
                    .arg(call.activity)
                    .arg(call.durationMs)
                    .arg(call.repaints)
                    .arg(call.longestGapMs);
    return text;
}
