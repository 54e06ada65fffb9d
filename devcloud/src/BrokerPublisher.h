// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <condition_variable>
#include <mutex>
#include <set>

struct mosquitto;

namespace devcloud {

// A publishing MQTT client (libmosquitto with its own network thread: this
// is the dev cloud, not the application's client). It reconnects by itself
// after a broker restart. Thread-safe.
class BrokerPublisher {
public:
    BrokerPublisher();
    ~BrokerPublisher();

    // Connects (the TCP connect blocks) and starts the network thread. A
    // non-empty caFile connects with TLS, trusting that CA.
    bool open(const QString& host, int port, const QString& username, const QString& password,
              const QString& caFile, QString* error);
    // Number of connections the broker accepted so far.
    int connectCount();
    // Waits until the broker has accepted more than `count` connections and
    // the latest is up.
    bool waitForConnectCount(int count, int timeoutMs);
    // Publishes; with qos >= 1 waits (at most timeoutMs) for the broker's
    // acknowledgement, with qos 0 returns once the message is queued.
    bool publish(const QString& topic, const QByteArray& payload, int qos, bool retain, int timeoutMs,
                 QString* error);

private:
    static void onConnect(mosquitto*, void* self, int code);
    static void onDisconnect(mosquitto*, void* self, int code);
    static void onPublish(mosquitto*, void* self, int mid);

    mosquitto* m_mosq = nullptr;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_connected = false;
    int m_lastConnack = -1;
    int m_connects = 0;
    std::set<int> m_acknowledged;
};

} // namespace devcloud
