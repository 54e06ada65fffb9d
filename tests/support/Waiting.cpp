// SPDX-License-Identifier: MIT
#include "Waiting.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

namespace VornTest {

bool waitUntil(const std::function<bool()>& done, int timeoutMs, int tickMs)
{
    if (done())
        return true;
    QDeadlineTimer deadline(timeoutMs);
    QEventLoop loop;
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout, &loop, [&] {
        if (done() || deadline.hasExpired())
            loop.quit();
    });
    tick.start(tickMs);
    loop.exec();
    return done();
}

void deliverQueued(int turns)
{
    for (int i = 0; i < turns; ++i) {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
}

QVariantMap finishOf(Nubra::Reply* reply, int timeoutMs)
{
    QVariantMap answer;
    bool finished = false;
    QEventLoop loop;
    QObject::connect(reply, &Nubra::Reply::finished, &loop, [&](const QVariantMap& map) {
        if (!finished)
            answer = map;
        finished = true;
        loop.quit();
    });
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    reply->deleteLater();
    return answer;
}

bool loadConfig(Nubra::Manager& manager, const QString& path, int timeoutMs)
{
    return finishOf(manager.setConfigPath(path, {}), timeoutMs).value(QStringLiteral("status")) ==
           QStringLiteral("success");
}

} // namespace VornTest
