// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QString>

#include <cstdio>
#include <functional>

// Shows the progress of one transfer. On a terminal it redraws one line in
// place ("\r"), at most ten times a second; elsewhere (a pipe, a log, a test)
// it writes a plain line whenever another tenth of the total is reached, so
// logs stay short and readable. Once half a second has passed, both show
// the average rate since the first update and the time left at that rate.
// Sizes are in IEC units (KiB, MiB, GiB: powers of 1024).
class ProgressBar {
public:
    enum class Style { Auto, Live, Plain };

    ProgressBar(QString label, FILE* stream, Style style = Style::Auto);
    ~ProgressBar();

    void update(qint64 done, qint64 total);
    // Ends the live line (if any) with a note such as "paused" or "done".
    void finish(const QString& note);

    bool live() const { return m_live; }

    // Milliseconds since some fixed point; replaces the monotonic clock
    // (tests drive the rate with it).
    void setClock(std::function<qint64()> nowMs) { m_now = std::move(nowMs); }

    // "1.5 MiB", "512 B"
    static QString formatBytes(qint64 bytes);
    // "3 s", "2 min 05 s", "1 h 02 min"
    static QString formatDuration(qint64 seconds);
    // ", 1.9 MiB/s, 3 s left" (no time left when the total is unknown or
    // reached); "" when the rate is not known yet (bytesPerSecond < 0).
    static QString rateText(double bytesPerSecond, qint64 done, qint64 total);
    // The live line for a state; exposed for the tests.
    static QString liveLine(const QString& label, qint64 done, qint64 total, int width = 30,
                            double bytesPerSecond = -1);

private:
    // The average rate since the first update, or -1 before it is known.
    double rate(qint64 done);

    QString m_label;
    FILE* m_stream;
    bool m_live;
    bool m_drawn = false;
    bool m_finished = false;
    int m_lastTenth = -1;
    qint64 m_lastDone = -1;
    qint64 m_lastTotal = -1;
    QElapsedTimer m_sinceDraw;
    std::function<qint64()> m_now;
    qint64 m_startMs = -1;
    qint64 m_startDone = 0;
};
