// SPDX-License-Identifier: MIT
#pragma once

// The local wait every blocking call of the helper runs: a QEventLoop on the
// heap, held through a guarded pointer, that the call's handlers, a time-out
// or a pause end. Each call keeps its own loop flags, timer type, connection
// types and release order; this class only gives them one shape:
//
//   LocalWait wait;                                     // the loop
//   const LocalWait::Handle loop = wait.handle();       // what handlers keep
//   wait.startTimeout(ms, type, [&] { ... });           // optional
//   connect(reply, ..., [loop, ...] { if (!loop.isRunning()) return; ...; loop.quit(); });
//   wait.exec(flags);
//   wait.deleteLoopLater(); LocalWait::releaseReply(reply);   // in the call's order
//
// Why the pieces: the handlers may run after the call has returned (a late
// answer, an abort of a long-lived reply), so they reach the loop only
// through the guarded handle and act only while it runs; the time-out timer
// is a child of the loop, so it dies with it (a context-bound
// QTimer::singleShot would stay registered in the thread's timer list until
// it expires: at thousands of calls per second with a 10 s time-out, tens of
// thousands of dead timers); the loop and the reply are released only after
// exec() has returned, and the reply's signals are blocked first so that a
// late signal cannot reach a handler whose call is gone. The destructor
// releases nothing: each call says when its loop goes.

#include "NubraCommon.h"

#include <QEventLoop>
#include <QPointer>

#include <functional>

namespace Nubra {
class Reply;
}

class LocalWait {
public:
    // What a handler holds: the loop, or null once it has been deleted.
    class Handle {
    public:
        explicit Handle(QEventLoop* loop) : m_loop(loop) {}
        // The loop still exists and runs: the call that waits is still there.
        bool isRunning() const { return m_loop && m_loop->isRunning(); }
        bool exists() const { return !m_loop.isNull(); }
        void quit() const { m_loop->quit(); }
        QEventLoop* loop() const { return m_loop.data(); }

    private:
        QPointer<QEventLoop> m_loop;
    };

    // A loop without parent, or (for the response watcher) a child of `parent`.
    explicit LocalWait(QObject* parent = nullptr);
    LocalWait(const LocalWait&) = delete;
    LocalWait& operator=(const LocalWait&) = delete;

    Handle handle() const { return Handle(m_loop); }
    QEventLoop* loop() const { return m_loop.data(); }

    // Qt's choice for a single-shot timer of `ms`: precise below two seconds,
    // coarse from two seconds on.
    static Qt::TimerType defaultTimerType(int ms) { return ms >= 2000 ? Qt::CoarseTimer : Qt::PreciseTimer; }

    // A single-shot time-out of `ms` with the loop as context: if the loop
    // still exists and runs when it fires, the loop quits and `onTimeout`
    // runs (it sets the call's result; the loop only leaves exec() after the
    // handler has returned).
    void startTimeout(int ms, Qt::TimerType type, std::function<void()> onTimeout);

    // The reply's errorOccurred (direct connection, the reply as context):
    // while the loop runs, writes `logText` followed by the error code, sets
    // `code` to TransportError and quits the loop.
    void quitOnError(Nubra::Reply* reply, NubraCommon::ErrorCode& code, const char* logText) const;

    void exec(QEventLoop::ProcessEventsFlags flags);

    // Releases, called after exec() in the order each call needs.
    void deleteLoopLater();
    void deleteLoopNow();
    // Blocks the reply's signals, then schedules its deletion.
    static void releaseReply(Nubra::Reply* reply);

private:
    QPointer<QEventLoop> m_loop;
};
