#pragma once

#include <QElapsedTimer>
#include <QString>

#include <cstdio>

// Shows the progress of one transfer. On a terminal it redraws one line in
// place ("\r"), at most ten times a second; elsewhere (a pipe, a log, a test)
// it writes a plain line whenever another tenth of the total is reached, so
// logs stay short and readable.
class ProgressBar {
public:
    enum class Style { Auto, Live, Plain };

    ProgressBar(QString label, FILE* stream, Style style = Style::Auto);
    ~ProgressBar();

    void update(qint64 done, qint64 total);
    // Ends the live line (if any) with a note such as "paused" or "done".
    void finish(const QString& note);

    bool live() const { return m_live; }

    // "1.5 MB", "512 B"
    static QString formatBytes(qint64 bytes);
    // The live line for a state; exposed for the tests.
    static QString liveLine(const QString& label, qint64 done, qint64 total, int width = 30);

private:
    QString m_label;
    FILE* m_stream;
    bool m_live;
    bool m_drawn = false;
    bool m_finished = false;
    int m_lastTenth = -1;
    qint64 m_lastDone = -1;
    qint64 m_lastTotal = -1;
    QElapsedTimer m_sinceDraw;
};
