// SPDX-License-Identifier: MIT
// subscribe and disconnectFromServer: one message-server connection and one
// topic subscription, relayed to the application as subscribeData.

#include "VornNubraHelper.h"

#include "LocalWait.h"
#include "VornLog.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

namespace {

// The long-lived replies are released through their shared pointers; the
// deletion is deferred because a release often happens inside one of the
// reply's own signals.
void releaseReply(Nubra::Reply* reply)
{
    if (reply)
        reply->deleteLater();
}

QSharedPointer<Nubra::Reply> holdReply(Nubra::Reply* reply)
{
    return QSharedPointer<Nubra::Reply>(reply, releaseReply);
}

} // namespace

int VornNubraHelper::subscribe(const QString& userName, const QString& reserved, const QList<QVariant>& topics,
                               int timeoutMs)
{
    Q_UNUSED(reserved)
    if (!m_manager)
        return NubraCommon::NoManager;
    if (m_serverConnected)
        return NubraCommon::Success;

    // Only whether a user name was given matters: the token is what is sent.
    QVariantMap connectRecord;
    if (!userName.isEmpty())
        // The token as "username" is kept for compatibility with applications built against this interface.
        connectRecord.insert(QStringLiteral("username"), m_userToken);
    connectRecord.insert(QStringLiteral("serverAuthentication"), 1u);
    m_connectReply = holdReply(m_manager->request(QStringLiteral("connectToServer"), connectRecord, QVariantMap()));
    if (!m_connectReply || m_connectReply->status() != 0) {
        m_connectReply.reset();
        return NubraCommon::RequestRejected;
    }

    LocalWait wait;
    const LocalWait::Handle loop = wait.handle();
    qint8 result = 0;

    // Every clean-up that ends a wait early drops the session and both replies.
    auto dropSession = [this] {
        QObject::disconnect(m_abortConnection);
        QObject::disconnect(m_spareConnection);
        m_connectReply.reset();
        m_subscribeReply.reset();
    };

    wait.startTimeout(timeoutMs, LocalWait::defaultTimerType(timeoutMs), [this, &result, dropSession] {
        result = NubraCommon::Timeout;
        if (!m_serverConnected)
            dropSession();
    });

    // The handlers that outlive this call (abort, connect error, messages)
    // find the loop gone through the guarded pointer and only log.
    auto onAbort = [this, loop, dropSession] {
        VORN_LOG << "Nubra Subscribe Disconnected";
        m_serverConnected = false;
        if (loop.isRunning()) {
            loop.quit();
            dropSession();
        }
    };
    auto onConnectError = [this, loop, dropSession](Nubra::Error::ErrorCode code) {
        // No blank before the code, unlike the stale-error text: kept for compatibility with applications
        // built against this interface.
        VORN_LOG << "Nubra Subscribe errorOccurred" << int(code);
        m_serverConnected = false;
        if (loop.isRunning()) {
            loop.quit();
            dropSession();
        }
    };

    const QList<QVariant> topicsCopy = topics;
    QObject::connect(
        m_connectReply.data(), &Nubra::Reply::finished, wait.loop(),
        [this, loop, topicsCopy, onAbort, onConnectError, dropSession](const QVariantMap&) {
            if (!loop.isRunning())
                return;
            m_abortConnection = QObject::connect(m_connectReply.data(), qOverload<>(&Nubra::Reply::abort), this,
                                                 onAbort, Qt::DirectConnection);
            QObject::connect(m_connectReply.data(), &Nubra::Reply::errorOccurred, this, onConnectError,
                             Qt::DirectConnection);

            const QVariantMap subscribeRecord{{QStringLiteral("topic"), QVariant(topicsCopy)},
                                              {QStringLiteral("qos"), 0}};
            m_subscribeReply =
                holdReply(m_manager->request(QStringLiteral("subscribe"), subscribeRecord, QVariantMap()));
            if (m_subscribeReply && m_subscribeReply->status() != 0) {
                if (loop.isRunning())
                    loop.quit();
                dropSession();
            }
            if (m_subscribeReply) {
                QObject::connect(
                    m_subscribeReply.data(), &Nubra::Reply::finished, this,
                    [](const QVariantMap&) { VORN_LOG << "subscribed success"; }, Qt::DirectConnection);
                QObject::connect(
                    m_subscribeReply.data(), &Nubra::Reply::received, this,
                    [this](const QString& topic, const QVariantMap& data) {
                        VORN_LOG << "Nubra Subscribe received Success";
                        emit subscribeData(topic, data);
                    },
                    Qt::DirectConnection);
            }
            // Set on every path, also after a refused subscription: kept for
            // compatibility with applications built against this interface.
            m_serverConnected = true;
        },
        Qt::DirectConnection);

    // Only the subscription reply held before this call is watched for
    // errors; the one created during the wait is not, so a normal
    // subscription ends by the time-out. Kept for compatibility with
    // applications built against this interface.
    if (m_subscribeReply) {
        QObject::connect(
            m_subscribeReply.data(), &Nubra::Reply::errorOccurred, wait.loop(),
            [loop, &result, dropSession](Nubra::Error::ErrorCode code) {
                if (!loop.isRunning())
                    return;
                VORN_LOG << "Nubra Subscribe ErrorOccurred: " << int(code);
                result = NubraCommon::SubscribeFailed;
                loop.quit();
                dropSession();
            },
            Qt::DirectConnection);
    }

    wait.exec(QEventLoop::AllEvents);
    wait.deleteLoopLater();
    VORN_LOG << "Nubra Subscribe end.";
    return result;
}

int VornNubraHelper::disconnectFromServer()
{
    if (!m_manager)
        return NubraCommon::NoManager;
    Nubra::Reply* reply = m_manager->request(QStringLiteral("disconnectFromServer"), QVariantMap(), QVariantMap());
    if (reply && reply->status() == 0) {
        VORN_LOG << "Nubra disconnectFromServer success.";
        reply->deleteLater();
        m_serverConnected = false;
        return NubraCommon::Success;
    }
    VORN_LOG << "Nubra disconnectFromServer error: " << uint(reply ? reply->status() : 0);
    if (reply)
        reply->deleteLater();
    return NubraCommon::RequestRejected;
}
