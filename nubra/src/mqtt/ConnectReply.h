// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Reply.h>

#include <QHash>
#include <QList>
#include <QPointer>

namespace Nubra {

class MqttSession;
class SubscribeReply;

// The reply of "connectToServer": it owns the broker connection, which
// lives as long as the reply (or until disconnectFromServer / abort()).
//
// - finished() once the broker has accepted the connection (CONNACK);
//   errorOccurred() + finished() when the first attempt fails
//   (NotAuthorized for refused credentials, BrokerUnreachable, TimedOut...).
// - connected() after every accepted (re)connection, disconnected() when
//   the connection drops or is ended.
// - After a drop the connection is re-established with backoff and every
//   live subscription is restored; abort() is emitted (as a notification)
//   only when reconnecting has been given up.
// - Calling abort() ends the connection at once.
class ConnectReply : public Reply {
    Q_OBJECT
public:
    ConnectReply(const QString& requestName, MqttSession* session, QObject* parent);
    ~ConnectReply() override;

    void start();
    // Ends the connection now (DISCONNECT); no reconnect, no abort().
    void endSession();
    bool isEnded() const { return m_ended; }

    // Takes a subscription: SUBSCRIBE goes out now, or after the next
    // (re)connection. The subscription may be deleted at any time.
    void addSubscription(SubscribeReply* subscription);
    void removeSubscription(SubscribeReply* subscription);

protected:
    void onAbort(const QString& item) override;

private:
    void sendSubscribe(SubscribeReply* subscription);
    void sessionConnected();
    void sessionLost();
    void sessionGaveUp(Error::ErrorCode code, const QString& message);
    void acknowledged(int mid, const QList<int>& granted);
    void messageArrived(const QString& topic, const QByteArray& payload);
    QList<QPointer<SubscribeReply>> liveSubscriptions() const;

    MqttSession* m_session; // child
    bool m_ended = false;
    QList<QPointer<SubscribeReply>> m_subscriptions;
    QHash<int, QPointer<SubscribeReply>> m_pendingAcks;
};

} // namespace Nubra
