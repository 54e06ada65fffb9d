#include "ProgressBar.h"

#include <algorithm>

#include <unistd.h>

ProgressBar::ProgressBar(QString label, FILE* stream, Style style)
    : m_label(std::move(label))
    , m_stream(stream)
    , m_live(style == Style::Live || (style == Style::Auto && isatty(fileno(stream))))
{
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
    static const char* const units[] = {"KB", "MB", "GB", "TB"};
    double value = double(bytes) / 1024.0;
    int unit = 0;
    while (value >= 1023.95 && unit < 3) {
        value /= 1024.0;
        ++unit;
    }
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 1).arg(QLatin1String(units[unit]));
}

QString ProgressBar::liveLine(const QString& label, qint64 done, qint64 total, int width)
{
    if (total <= 0)
        return QStringLiteral("%1 %2").arg(label, formatBytes(done));
    const double fraction = qBound(0.0, double(done) / double(total), 1.0);
    const int filled = int(fraction * width + 0.5);
    return QStringLiteral("%1 [%2%3] %4% %5 of %6")
        .arg(label, QString(filled, QLatin1Char('#')), QString(width - filled, QLatin1Char(' ')))
        .arg(int(fraction * 100.0), 3)
        .arg(formatBytes(done), formatBytes(total));
}

void ProgressBar::update(qint64 done, qint64 total)
{
    if (done == m_lastDone && total == m_lastTotal)
        return;
    m_lastDone = done;
    m_lastTotal = total;
    if (m_live) {
        const bool complete = total > 0 && done >= total;
        if (m_drawn && !complete && m_sinceDraw.isValid() && m_sinceDraw.elapsed() < 100)
            return;
        m_sinceDraw.start();
        std::fprintf(m_stream, "\r%s\033[K", liveLine(m_label, done, total).toUtf8().constData());
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
    const QString line = total > 0 ? QStringLiteral("%1 %2% (%3 of %4)")
                                         .arg(m_label)
                                         .arg(tenth * 10)
                                         .arg(formatBytes(done), formatBytes(total))
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
