// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Reply.h>

#include <QPointer>
#include <QStringList>

namespace Nubra {

class ConnectReply;

// The reply of "subscribe".
//
// - finished() when the broker acknowledged the subscription (SUBACK), with
//   {"status": "success", "result": {"topic": [...], "qos": [granted...]}};
//   errorOccurred(SubscribeRejected) + finished() when the broker refused a
//   filter, errorOccurred(ConnectionLost / Cancelled) + finished() when the
//   connection ended before the acknowledgement.
// - After finished() the reply stays alive and emits received(topic, data)
//   for every message whose topic matches one of its filters, in the order
//   the broker sent them, also across reconnections (subscribed() is emitted
//   again when the subscription was restored).
// - Deleting the reply unsubscribes its filters.
class SubscribeReply : public Reply {
    Q_OBJECT
public:
    SubscribeReply(const QString& requestName, const QStringList& filters, int qos, QObject* parent);
    ~SubscribeReply() override;

    QStringList filters() const { return m_filters; }
    int qos() const { return m_qos; }
    bool matches(const QString& topic) const;

    // Called by the connection.
    void attach(ConnectReply* connection) { m_connection = connection; }
    void acknowledged(const QList<int>& granted);
    void deliver(const QString& topic, const QVariantMap& data) { emit received(topic, data); }
    void connectionLost() { emit disconnected(); }
    void connectionEnded(Error::ErrorCode code, const QString& message);
    void failed(Error::ErrorCode code, const QString& message) { failWith(code, message); }

protected:
    void onAbort(const QString& item) override;

private:
    QStringList m_filters;
    std::vector<QByteArray> m_encodedFilters;
    int m_qos;
    QPointer<ConnectReply> m_connection;
};

} // namespace Nubra
