#include "LocalWait.h"

#include "VornLog.h"

#include <Nubra/Reply.h>

#include <QEventLoop>
#include <QTimer>

namespace LocalWait {

void startTimeout(const QPointer<QEventLoop>& loop, int ms, Qt::TimerType type, NubraCommon::ErrorCode& code)
{
    // A context-bound QTimer::singleShot would stay registered until it
    // expires: at thousands of calls per second with a 10 s time-out, tens
    // of thousands of dead timers in the thread's timer list.
    auto* timer = new QTimer(loop);
    timer->setSingleShot(true);
    timer->setTimerType(type);
    QObject::connect(timer, &QTimer::timeout, loop, [loop, &code] {
        if (loop && loop->isRunning()) {
            code = NubraCommon::Timeout;
            loop->quit();
        }
    });
    timer->start(ms);
}

void quitOnError(Nubra::Reply* reply, const QPointer<QEventLoop>& loop, NubraCommon::ErrorCode& code,
                 const char* logText)
{
    QObject::connect(
        reply, &Nubra::Reply::errorOccurred, reply,
        [loop, &code, logText](Nubra::Error::ErrorCode error) {
            if (!loop || !loop->isRunning())
                return;
            VORN_LOG << logText << int(error);
            code = NubraCommon::TransportError;
            loop->quit();
        },
        Qt::DirectConnection);
}

void release(QEventLoop* loop, Nubra::Reply* reply)
{
    loop->deleteLater();
    reply->blockSignals(true);
    reply->deleteLater();
}

} // namespace LocalWait
