// SPDX-License-Identifier: MIT
#include "BrokerPublisher.h"

#include <mosquitto.h>

#include <chrono>

namespace devcloud {

BrokerPublisher::BrokerPublisher()
{
    mosquitto_lib_init();
    m_mosq = mosquitto_new(nullptr, true, this);
    if (m_mosq) {
        mosquitto_int_option(m_mosq, MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_connect_callback_set(m_mosq, &BrokerPublisher::onConnect);
        mosquitto_disconnect_callback_set(m_mosq, &BrokerPublisher::onDisconnect);
        mosquitto_publish_callback_set(m_mosq, &BrokerPublisher::onPublish);
        mosquitto_reconnect_delay_set(m_mosq, 1, 1, false);
    }
}

BrokerPublisher::~BrokerPublisher()
{
    if (m_mosq) {
        mosquitto_disconnect(m_mosq);
        mosquitto_loop_stop(m_mosq, true);
        mosquitto_destroy(m_mosq);
    }
}

bool BrokerPublisher::open(const QString& host, int port, const QString& username, const QString& password,
                           const QString& caFile, QString* error)
{
    if (!m_mosq) {
        *error = QStringLiteral("cannot create an MQTT client");
        return false;
    }
    mosquitto_username_pw_set(m_mosq, username.toUtf8().constData(), password.toUtf8().constData());
    if (!caFile.isEmpty()) {
        const int rc = mosquitto_tls_set(m_mosq, caFile.toLocal8Bit().constData(), nullptr, nullptr, nullptr, nullptr);
        if (rc != MOSQ_ERR_SUCCESS) {
            *error = QStringLiteral("cannot use CA file %1: %2").arg(caFile, QString::fromUtf8(mosquitto_strerror(rc)));
            return false;
        }
    }
    int rc = mosquitto_connect(m_mosq, host.toUtf8().constData(), port, 30);
    if (rc == MOSQ_ERR_SUCCESS)
        rc = mosquitto_loop_start(m_mosq);
    if (rc != MOSQ_ERR_SUCCESS) {
        *error = QStringLiteral("cannot connect to %1:%2: %3")
                     .arg(host)
                     .arg(port)
                     .arg(QString::fromUtf8(mosquitto_strerror(rc)));
        return false;
    }
    return true;
}

int BrokerPublisher::connectCount()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_connects;
}

bool BrokerPublisher::waitForConnectCount(int count, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                              [this, count] { return m_connected && m_connects > count; });
}

bool BrokerPublisher::publish(const QString& topic, const QByteArray& payload, int qos, bool retain, int timeoutMs,
                              QString* error)
{
    if (!m_mosq) {
        *error = QStringLiteral("no MQTT client");
        return false;
    }
    int mid = 0;
    const int rc = mosquitto_publish(m_mosq, &mid, topic.toUtf8().constData(), payload.size(), payload.constData(),
                                     qos, retain);
    if (rc != MOSQ_ERR_SUCCESS) {
        *error = QString::fromUtf8(mosquitto_strerror(rc));
        return false;
    }
    if (qos == 0)
        return true;
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                            [this, mid] { return m_acknowledged.count(mid) > 0; })) {
        *error = QStringLiteral("the broker did not acknowledge the message");
        return false;
    }
    m_acknowledged.erase(mid);
    return true;
}

void BrokerPublisher::onConnect(mosquitto*, void* self, int code)
{
    auto* publisher = static_cast<BrokerPublisher*>(self);
    std::lock_guard<std::mutex> lock(publisher->m_mutex);
    publisher->m_lastConnack = code;
    publisher->m_connected = code == 0;
    if (code == 0)
        ++publisher->m_connects;
    publisher->m_changed.notify_all();
}

void BrokerPublisher::onDisconnect(mosquitto*, void* self, int)
{
    auto* publisher = static_cast<BrokerPublisher*>(self);
    std::lock_guard<std::mutex> lock(publisher->m_mutex);
    publisher->m_connected = false;
    publisher->m_changed.notify_all();
}

void BrokerPublisher::onPublish(mosquitto*, void* self, int mid)
{
    auto* publisher = static_cast<BrokerPublisher*>(self);
    std::lock_guard<std::mutex> lock(publisher->m_mutex);
    publisher->m_acknowledged.insert(mid);
    publisher->m_changed.notify_all();
}

} // namespace devcloud
