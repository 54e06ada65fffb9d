// SPDX-License-Identifier: MIT
#pragma once

#include "mqtt/MqttConnectAttempt.h"
#include "mqtt/MqttSettings.h"

#include <Nubra/Error.h>

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class QSocketNotifier;
class QTimer;
struct mosquitto;
struct mosquitto_message;

namespace Nubra {

// One MQTT connection driven by libmosquitto from the Qt event loop of the
// thread that owns it: socket notifiers call the library's read and write
// steps, a one-second timer its housekeeping (keep-alive pings), and the
// write notifier is enabled only while the library has bytes to send. No
// library thread is started, so every signal comes from this thread.
//
// Library callbacks only record what happened; the records are turned into
// signals after the library call has returned, so that a receiver may
// close or delete the session without pulling the handle from under
// libmosquitto.
//
// The name look-up and TCP connect of every attempt run on a thread of their
// own (MqttConnectAttempt); the connect time-out counts from the attempt's
// start to CONNACK, so an address that never answers fails on time.
//
// Reconnection policy: the first connection attempt is not retried (its
// failure is reported by connectFailed()). Once connected, a dropped
// connection is reported by connectionLost() and retried after
// settings.reconnectDelayMs(n) for attempt n, at most
// settings.reconnectMaxAttempts times in a row; a successful CONNACK resets
// the count. When the attempts are used up, or the broker refuses the
// credentials on a reconnect, gaveUp() is emitted and the session stays
// closed.
class MqttSession : public QObject {
    Q_OBJECT
public:
    struct Credentials {
        bool authenticate = false;
        QString username;
        QString password;
    };

    MqttSession(const MqttSettings& settings, const Credentials& credentials, QObject* parent = nullptr);
    ~MqttSession() override;

    // Starts the first connection attempt on the next turn of the event loop.
    void open();
    // Ends the connection at once (DISCONNECT when connected); no reconnect
    // and no signal follows.
    void close();

    bool isConnected() const { return m_state == State::Connected; }
    bool isClosed() const { return m_state == State::Closed; }
    QString clientId() const { return m_clientId; }
    const MqttSettings& settings() const { return m_settings; }

    // Sends SUBSCRIBE; returns the message id (> 0) or 0 with *error set
    // (invalid filter, not connected).
    int subscribe(const QStringList& filters, int qos, Error::ErrorCode* error, QString* message);
    void unsubscribe(const QStringList& filters);

signals:
    void connected();
    void connectFailed(Nubra::Error::ErrorCode code, const QString& message);
    void connectionLost();
    void gaveUp(Nubra::Error::ErrorCode code, const QString& message);
    void subscribeAcknowledged(int mid, const QList<int>& grantedQos);
    void messageArrived(const QString& topic, const QByteArray& payload);

private:
    enum class State { Idle, Connecting, Connected, WaitingToReconnect, Closed };
    struct Event {
        enum Kind { ConnAck, Disconnected, SubAck, Message } kind;
        int code = 0;
        QList<int> granted;
        QString topic;
        QByteArray payload;
    };

    static void onConnectCallback(mosquitto*, void* self, int code);
    static void onDisconnectCallback(mosquitto*, void* self, int code);
    static void onSubscribeCallback(mosquitto*, void* self, int mid, int count, const int* granted);
    static void onMessageCallback(mosquitto*, void* self, const mosquitto_message* message);

    void firstConnect();
    void attemptReconnect();
    // A fresh, configured libmosquitto handle; nullptr with the error.
    mosquitto* newHandle(Error::ErrorCode* code, QString* message);
    // Starts a connect off this thread (MqttConnectAttempt).
    void startAttempt();
    void connectReturned(mosquitto* handle, int rc, int savedErrno);
    void abandonPendingConnect();
    void connectionEstablished(); // TCP up, CONNECT queued
    void readReady();
    void writeReady();
    void housekeeping();
    // Emits the recorded events; returns false when the session was
    // deleted by a receiver.
    bool dispatchEvents();
    // After one libmosquitto read, write or housekeeping step that returned rc.
    void afterLoopStep(int rc);
    void handleDrop(int mosquittoResult, const QString& why);
    void scheduleReconnect();
    void fail(Error::ErrorCode code, const QString& message);
    void createNotifiers();
    void removeNotifiers();
    void updateWriteInterest();
    bool moreTlsData() const;

    MqttSettings m_settings;
    Credentials m_credentials;
    QString m_clientId;
    mosquitto* m_mosq = nullptr; // none while a connect runs elsewhere
    std::shared_ptr<MqttConnectAttempt> m_pendingConnect;
    State m_state = State::Idle;
    bool m_everConnected = false;
    int m_attempt = 0;
    QSocketNotifier* m_readNotifier = nullptr;
    QSocketNotifier* m_writeNotifier = nullptr;
    QTimer* m_housekeeping = nullptr;
    QTimer* m_reconnectTimer = nullptr;
    QTimer* m_connectTimer = nullptr; // the attempt's time-out, until CONNACK
    std::vector<Event> m_events;
};

} // namespace Nubra
