// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVector>

class BusyState;
class QWidget;

// Records, for each blocking call the window marks busy, how long it ran,
// how often the window repainted and the longest stretch without a
// repaint (from the call's start to its end, both ends included).
class RepaintGapRecorder : public QObject {
    Q_OBJECT
public:
    struct Call {
        QString activity;
        qint64 durationMs = 0;
        int repaints = 0;
        qint64 longestGapMs = 0;
    };

    RepaintGapRecorder(QWidget* window, BusyState* busy);
    ~RepaintGapRecorder() override;

    const QVector<Call>& calls() const { return m_calls; }
    // The longest gap of every call recorded so far.
    qint64 longestGapMs() const;
    // A table of the calls, one line each.
    QString report() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void start(const QString& activity);
    void finish();

    QPointer<QWidget> m_window;
    QElapsedTimer m_clock;
    bool m_recording = false;
    qint64 m_lastPaintMs = 0;
    Call m_current;
    QVector<Call> m_calls;
};
