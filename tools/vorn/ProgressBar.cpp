// SPDX-License-Identifier: MIT
#include "ProgressBar.h"

#include <algorithm>
#include <memory>

#include <unistd.h>

namespace {
// A rate over less time than this says more about start-up than speed.
constexpr qint64 kRateAfterMs = 500;
}

ProgressBar::ProgressBar(QString label, FILE* stream, Style style)
    : m_label(std::move(label))
    , m_stream(stream)
    , m_live(style == Style::Live || (style == Style::Auto && isatty(fileno(stream))))
{
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    m_now = [clock] { return clock->elapsed(); };
}

ProgressBar::~ProgressBar()
{
    if (m_drawn && !m_finished)
        finish(QString());
}

QString ProgressBar::formatBytes(qint64 bytes)
{
    if (bytes < 1024)
        return QStringLiteral("%1 B").arg(bytes);
    // Move to the next unit once the number would round to 1024.0.
    static const char* const units[] = {"KiB", "MiB", "GiB", "TiB"};
    double value = double(bytes) / 1024.0;
    int unit = 0;
    while (value >= 1023.95 && unit < 3) {
        value /= 1024.0;
        ++unit;
    }
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 1).arg(QLatin1String(units[unit]));
}

QString ProgressBar::formatDuration(qint64 seconds)
{
    if (seconds < 60)
        return QStringLiteral("%1 s").arg(seconds);
    if (seconds < 3600)
        return QStringLiteral("%1 min %2 s").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
    return QStringLiteral("%1 h %2 min").arg(seconds / 3600).arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'));
}

QString ProgressBar::rateText(double bytesPerSecond, qint64 done, qint64 total)
{
    if (bytesPerSecond < 0)
        return QString();
    QString text = QStringLiteral(", %1/s").arg(formatBytes(qint64(bytesPerSecond)));
    if (total > 0 && done < total) {
        text += bytesPerSecond > 0
            ? QStringLiteral(", %1 left").arg(formatDuration(qint64(double(total - done) / bytesPerSecond + 0.5)))
            : QStringLiteral(", stalled");
    }
    return text;
}

QString ProgressBar::liveLine(const QString& label, qint64 done, qint64 total, int width, double bytesPerSecond)
{
    if (total <= 0)
        return QStringLiteral("%1 %2%3").arg(label, formatBytes(done), rateText(bytesPerSecond, done, total));
    const double fraction = qBound(0.0, double(done) / double(total), 1.0);
    const int filled = int(fraction * width + 0.5);
    return QStringLiteral("%1 [%2%3] %4% %5 of %6%7")
        .arg(label, QString(filled, QLatin1Char('#')), QString(width - filled, QLatin1Char(' ')))
        .arg(int(fraction * 100.0), 3)
        .arg(formatBytes(done), formatBytes(total), rateText(bytesPerSecond, done, total));
}

double ProgressBar::rate(qint64 done)
{
    const qint64 now = m_now();
    if (m_startMs < 0) {
        m_startMs = now;
        m_startDone = done;
        return -1;
    }
    const qint64 elapsed = now - m_startMs;
    if (elapsed < kRateAfterMs)
        return -1;
    return double(qMax<qint64>(0, done - m_startDone)) * 1000.0 / double(elapsed);
}

void ProgressBar::update(qint64 done, qint64 total)
{
    if (done == m_lastDone && total == m_lastTotal)
        return;
    m_lastDone = done;
    m_lastTotal = total;
    const double bytesPerSecond = rate(done);
    if (m_live) {
        const bool complete = total > 0 && done >= total;
        if (m_drawn && !complete && m_sinceDraw.isValid() && m_sinceDraw.elapsed() < 100)
            return;
        m_sinceDraw.start();
        std::fprintf(m_stream, "\r%s\033[K", liveLine(m_label, done, total, 30, bytesPerSecond).toUtf8().constData());
        std::fflush(m_stream);
        m_drawn = true;
        return;
    }
    // Plain: one line per tenth reached (and the first one), none in between.
    const int tenth = total > 0 ? int(std::clamp<qint64>(done * 10 / total, 0, 10)) : -1;
    if (total > 0 && tenth == m_lastTenth)
        return;
    if (total <= 0 && m_drawn)
        return;
    m_lastTenth = tenth;
    const QString line = total > 0 ? QStringLiteral("%1 %2% (%3 of %4%5)")
                                         .arg(m_label)
                                         .arg(tenth * 10)
                                         .arg(formatBytes(done), formatBytes(total),
                                              rateText(bytesPerSecond, done, total))
                                   : QStringLiteral("%1 %2 so far").arg(m_label, formatBytes(done));
    std::fprintf(m_stream, "%s\n", line.toUtf8().constData());
    std::fflush(m_stream);
    m_drawn = true;
}

void ProgressBar::finish(const QString& note)
{
    if (m_finished)
        return;
    m_finished = true;
    if (m_live && m_drawn) {
        std::fprintf(m_stream, "%s%s\n", note.isEmpty() ? "" : " ", note.toUtf8().constData());
    } else if (!note.isEmpty()) {
        std::fprintf(m_stream, "%s %s\n", m_label.toUtf8().constData(), note.toUtf8().constData());
    }
    std::fflush(m_stream);
}
