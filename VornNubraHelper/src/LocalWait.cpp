// SPDX-License-Identifier: MIT
#include "LocalWait.h"

#include "VornLog.h"

#include <Nubra/Reply.h>

#include <QTimer>

LocalWait::LocalWait(QObject* parent) : m_loop(new QEventLoop(parent))
{
}

void LocalWait::startTimeout(int ms, Qt::TimerType type, std::function<void()> onTimeout)
{
    auto* timer = new QTimer(m_loop);
    timer->setSingleShot(true);
    timer->setTimerType(type);
    const Handle loop = handle();
    QObject::connect(timer, &QTimer::timeout, m_loop, [loop, onTimeout = std::move(onTimeout)] {
        if (!loop.isRunning())
            return;
        loop.quit();
        onTimeout();
    });
    timer->start(ms);
}

void LocalWait::quitOnError(Nubra::Reply* reply, NubraCommon::ErrorCode& code, const char* logText) const
{
    const Handle loop = handle();
    QObject::connect(
        reply, &Nubra::Reply::errorOccurred, reply,
        [loop, &code, logText](Nubra::Error::ErrorCode error) {
            if (!loop.isRunning())
                return;
            VORN_LOG << logText << int(error);
            code = NubraCommon::TransportError;
            loop.quit();
        },
        Qt::DirectConnection);
}

void LocalWait::exec(QEventLoop::ProcessEventsFlags flags)
{
    m_loop->exec(flags);
}

void LocalWait::deleteLoopLater()
{
    if (m_loop)
        m_loop->deleteLater();
}

void LocalWait::deleteLoopNow()
{
    delete m_loop.data();
}

void LocalWait::releaseReply(Nubra::Reply* reply)
{
    reply->blockSignals(true);
    reply->deleteLater();
}
