// SPDX-License-Identifier: MIT
#pragma once

#include "Broker.h"
#include "BrokerPublisher.h"

#include <QStringList>

#include <memory>
#include <mutex>

namespace devcloud {

class SessionTokens;
class Store;

// The dev cloud's message server: a mosquitto broker, the cloud's own
// publishing connection to it, and the broker's view of the user tokens
// and of the topics each may use (see topicsOf).
// Owned by DevCloud; destroying it stops the broker.
class MessageHub {
public:
    // With tls, the broker and the cloud's publisher speak TLS.
    MessageHub(Store& store, SessionTokens& sessions, bool tls);
    ~MessageHub();

    bool start(QString* error);
    // Stops the broker, waits downMs, starts it again on the same port and
    // waits until the cloud's publisher is connected again.
    bool restart(int downMs, QString* error);
    bool stopBroker();
    bool startBroker(QString* error);

    // Makes the broker accept every unexpired token, each for the topics of
    // its user, when a token was issued or a device changed hands since the
    // last call; cheap when nothing changed.
    void syncAccounts();
    // The topic filters a user may subscribe and publish to: "users/ID/#"
    // and "devices/SN/#" for each of the user's devices.
    QStringList topicsOf(qint64 userId);

    bool publish(const QString& topic, const QByteArray& payload, int qos, bool retain, QString* error);

    Broker& broker() { return m_broker; }

private:
    bool reconnectPublisher(int connectsBefore, QString* error);

    Store& m_store;
    SessionTokens& m_sessions;
    Broker m_broker;
    std::unique_ptr<BrokerPublisher> m_publisher;
    std::mutex m_syncMutex;
    QString m_lastSync; // what the broker's files were written from

};

} // namespace devcloud
