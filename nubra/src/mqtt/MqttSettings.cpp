// SPDX-License-Identifier: MIT
#include "mqtt/MqttSettings.h"

#include "config/ClientConfig.h"

namespace Nubra {

namespace {

int intValue(const QVariantMap& map, const char* key, int fallback, int minimum, int maximum)
{
    bool ok = false;
    const int value = map.value(QLatin1String(key)).toInt(&ok);
    if (!map.contains(QLatin1String(key)) || !ok)
        return fallback;
    return qBound(minimum, value, maximum);
}

} // namespace

bool MqttSettings::fromConfig(const ClientConfig& config, MqttSettings* settings, QString* message)
{
    const QVariantMap section = config.section(QStringLiteral("mqtt"));
    if (section.isEmpty()) {
        *message = QStringLiteral("no \"mqtt\" section configured");
        return false;
    }
    MqttSettings s;
    s.host = section.value(QStringLiteral("host")).toString();
    if (s.host.isEmpty()) {
        *message = QStringLiteral("\"mqtt\" needs a \"host\"");
        return false;
    }
    s.tls = section.value(QStringLiteral("tls")).toBool();
    s.caFile = config.resolvePath(section.value(QStringLiteral("caFile")).toString());
    if (!s.caFile.isEmpty())
        s.tls = true;
    s.port = intValue(section, "port", s.tls ? 8883 : 1883, 0, 65535);
    if (s.port == 0) {
        *message = QStringLiteral("\"mqtt\" has an invalid \"port\"");
        return false;
    }
    // MQTT carries the keep-alive in 16 bits; libmosquitto wants at least 5.
    s.keepAliveSeconds = intValue(section, "keepAlive", 30, 5, 65535);
    s.connectTimeoutMs = ClientConfig::timeoutToMs(section.value(QStringLiteral("connectTimeout")), 10000);
    s.username = section.value(QStringLiteral("username")).toString();
    s.password = section.value(QStringLiteral("password")).toString();
    if (section.contains(QStringLiteral("clientIdPrefix")))
        s.clientIdPrefix = section.value(QStringLiteral("clientIdPrefix")).toString();

    const QVariantMap reconnect = section.value(QStringLiteral("reconnect")).toMap();
    s.reconnectInitialDelayMs = intValue(reconnect, "initialDelayMs", 250, 10, 600000);
    s.reconnectMaxDelayMs = intValue(reconnect, "maxDelayMs", 5000, s.reconnectInitialDelayMs, 3600000);
    s.reconnectMaxAttempts = intValue(reconnect, "maxAttempts", 10, 0, 1000000);
    *settings = s;
    return true;
}

int MqttSettings::reconnectDelayMs(int attempt) const
{
    qint64 delay = reconnectInitialDelayMs;
    for (int i = 1; i < attempt && delay < reconnectMaxDelayMs; ++i)
        delay *= 2;
    return int(qMin<qint64>(delay, reconnectMaxDelayMs));
}

} // namespace Nubra
