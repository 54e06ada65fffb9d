// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariantMap>

namespace Nubra {

class ClientConfig;

// The "mqtt" section of the client configuration (docs/messaging.md), read
// when a connection starts so that a new configuration applies to the next
// "connectToServer".
struct MqttSettings {
    QString host;
    int port = 1883;
    bool tls = false;
    QString caFile;            // resolved against the configuration's folder
    int keepAliveSeconds = 30;
    int connectTimeoutMs = 10000;
    QString username;          // used when the request carries none
    QString password;          // empty: the username doubles as password
    QString clientIdPrefix = QStringLiteral("nubra-");
    int reconnectInitialDelayMs = 250;
    int reconnectMaxDelayMs = 5000;
    int reconnectMaxAttempts = 10;

    // Reads the section; false (with a message) when it is missing or
    // unusable.
    static bool fromConfig(const ClientConfig& config, MqttSettings* settings, QString* message);
    // Delay before reconnect attempt number `attempt` (1-based): doubles from
    // the initial delay up to the maximum.
    int reconnectDelayMs(int attempt) const;
};

} // namespace Nubra
