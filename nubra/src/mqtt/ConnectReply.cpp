// SPDX-License-Identifier: MIT
#include "mqtt/ConnectReply.h"

#include "mqtt/MessagePayload.h"
#include "mqtt/MqttSession.h"
#include "mqtt/SubscribeReply.h"

namespace Nubra {

ConnectReply::ConnectReply(const QString& requestName, MqttSession* session, QObject* parent)
    : Reply(requestName, parent)
    , m_session(session)
{
    m_session->setParent(this);
    connect(m_session, &MqttSession::connected, this, &ConnectReply::sessionConnected);
    connect(m_session, &MqttSession::connectFailed, this,
            [this](Error::ErrorCode code, const QString& message) {
                m_ended = true;
                const auto subscriptions = liveSubscriptions();
                m_subscriptions.clear();
                for (const auto& subscription : subscriptions)
                    if (subscription)
                        subscription->connectionEnded(code, message);
                failWith(code, message);
            });
    connect(m_session, &MqttSession::connectionLost, this, &ConnectReply::sessionLost);
    connect(m_session, &MqttSession::gaveUp, this, &ConnectReply::sessionGaveUp);
    connect(m_session, &MqttSession::subscribeAcknowledged, this, &ConnectReply::acknowledged);
    connect(m_session, &MqttSession::messageArrived, this, &ConnectReply::messageArrived);
}

ConnectReply::~ConnectReply()
{
    // A clean DISCONNECT rather than a dropped socket.
    m_session->close();
    for (const auto& subscription : liveSubscriptions())
        if (subscription)
            subscription->attach(nullptr);
}

void ConnectReply::start() { m_session->open(); }

void ConnectReply::endSession()
{
    if (m_ended)
        return;
    m_ended = true;
    // The connection ends now; the news travels from the event loop, since
    // this may run inside Manager::request().
    m_session->close();
    const auto subscriptions = liveSubscriptions();
    m_subscriptions.clear();
    m_pendingAcks.clear();
    for (const auto& subscription : subscriptions)
        subscription->attach(nullptr);
    QMetaObject::invokeMethod(
        this,
        [this, subscriptions] {
            QPointer<ConnectReply> self(this);
            emit disconnected();
            for (const auto& subscription : subscriptions)
                if (subscription)
                    subscription->connectionEnded(Error::Cancelled, QStringLiteral("disconnected"));
            if (self)
                failWith(Error::Cancelled, QStringLiteral("disconnected before the broker answered"));
        },
        Qt::QueuedConnection);
}

void ConnectReply::onAbort(const QString& item)
{
    if (item.isEmpty())
        endSession();
}

void ConnectReply::addSubscription(SubscribeReply* subscription)
{
    subscription->attach(this);
    m_subscriptions.append(subscription);
    if (m_session->isConnected())
        sendSubscribe(subscription);
}

void ConnectReply::removeSubscription(SubscribeReply* subscription)
{
    m_subscriptions.removeAll(subscription);
    for (auto it = m_pendingAcks.begin(); it != m_pendingAcks.end();)
        it = it.value() == subscription ? m_pendingAcks.erase(it) : std::next(it);
    // Keep filters that another live subscription still needs.
    QStringList unused = subscription->filters();
    for (const auto& other : liveSubscriptions())
        if (other)
            for (const QString& filter : other->filters())
                unused.removeAll(filter);
    m_session->unsubscribe(unused);
}

void ConnectReply::sendSubscribe(SubscribeReply* subscription)
{
    Error::ErrorCode error = Error::NoError;
    QString message;
    const int mid = m_session->subscribe(subscription->filters(), subscription->qos(), &error, &message);
    if (mid > 0) {
        m_pendingAcks.insert(mid, subscription);
        return;
    }
    m_subscriptions.removeAll(subscription);
    subscription->attach(nullptr);
    subscription->failed(error, message);
}

void ConnectReply::sessionConnected()
{
    QPointer<ConnectReply> self(this);
    emit connected();
    if (!self || m_ended)
        return;
    finishWith({{QStringLiteral("status"), QStringLiteral("success")},
                {QStringLiteral("result"),
                 QVariantMap{{QStringLiteral("host"), m_session->settings().host},
                             {QStringLiteral("port"), m_session->settings().port},
                             {QStringLiteral("tls"), m_session->settings().tls},
                             {QStringLiteral("clientId"), m_session->clientId()}}}});
    if (!self || m_ended)
        return;
    // A clean session: the broker forgot our subscriptions, restore them.
    m_pendingAcks.clear();
    for (const auto& subscription : liveSubscriptions())
        if (subscription && !m_ended)
            sendSubscribe(subscription);
}

void ConnectReply::sessionLost()
{
    m_pendingAcks.clear();
    QPointer<ConnectReply> self(this);
    emit disconnected();
    for (const auto& subscription : liveSubscriptions())
        if (self && subscription)
            subscription->connectionLost();
}

void ConnectReply::sessionGaveUp(Error::ErrorCode code, const QString& message)
{
    m_ended = true;
    const auto subscriptions = liveSubscriptions();
    m_subscriptions.clear();
    m_pendingAcks.clear();
    QPointer<ConnectReply> self(this);
    for (const auto& subscription : subscriptions)
        if (subscription)
            subscription->connectionEnded(code, message);
    if (!self)
        return;
    if (!isFinished()) {
        failWith(code, message);
        return;
    }
    notifyAbort();
}

void ConnectReply::acknowledged(int mid, const QList<int>& granted)
{
    const QPointer<SubscribeReply> subscription = m_pendingAcks.take(mid);
    if (subscription)
        subscription->acknowledged(granted);
}

void ConnectReply::messageArrived(const QString& topic, const QByteArray& payload)
{
    QPointer<ConnectReply> self(this);
    QVariantMap data;
    bool decoded = false;
    // Usually one subscription: index loop over guarded pointers instead of
    // a copied list per message; a receiver may add or remove some.
    for (int i = 0; i < m_subscriptions.size(); ++i) {
        const QPointer<SubscribeReply> subscription = m_subscriptions.at(i);
        if (!subscription || !subscription->matches(topic))
            continue;
        if (!decoded) {
            data = decodeMessagePayload(payload);
            decoded = true;
        }
        subscription->deliver(topic, data);
        if (!self)
            return;
    }
}

QList<QPointer<SubscribeReply>> ConnectReply::liveSubscriptions() const
{
    QList<QPointer<SubscribeReply>> live;
    for (const auto& subscription : m_subscriptions)
        if (subscription)
            live.append(subscription);
    return live;
}

} // namespace Nubra
