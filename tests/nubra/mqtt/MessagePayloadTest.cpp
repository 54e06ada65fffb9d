// SPDX-License-Identifier: MIT
// Payload decoding, reconnect delays and error mapping of the message service.

#include "mqtt/MessagePayload.h"
#include "mqtt/MqttErrorMap.h"
#include "mqtt/MqttSettings.h"

#include "config/ClientConfig.h"

#include <mosquitto.h>

#include <gtest/gtest.h>

using Nubra::decodeMessagePayload;

namespace {

QVariantMap wrapped(const QString& payload, const char* encoding)
{
    return {{"payload", payload}, {"encoding", QString::fromLatin1(encoding)}};
}

} // namespace

TEST(MessagePayload, everyPayloadArrivesAsAMap)
{
    const QByteArray binary("\x00\xff\xfe\x01", 4);
    const struct {
        const char* name;
        QByteArray payload;
        QVariantMap expected;
    } cases[] = {
        {"object", R"({"seq": 7, "name": "scan", "nested": {"a": [1, 2]}})",
         {{"seq", 7}, {"name", "scan"}, {"nested", QVariantMap{{"a", QVariantList{1, 2}}}}}},
        {"object with leading blanks", "  \n{\"a\":true}", {{"a", true}}},
        {"empty object", "{}", {}},
        {"array is wrapped", "[1,2,3]", wrapped("[1,2,3]", "utf8")},
        {"number is wrapped", "42", wrapped("42", "utf8")},
        {"broken json is kept as text", "{\"a\":", wrapped("{\"a\":", "utf8")},
        {"plain text", "hello", wrapped("hello", "utf8")},
        {"utf8 text", "gr\xc3\xbc\xc3\x9f", wrapped(QString::fromUtf8("gr\xc3\xbc\xc3\x9f"), "utf8")},
        {"empty payload", "", wrapped("", "utf8")},
        {"binary", binary, wrapped(QString::fromLatin1(binary.toBase64()), "base64")},
        {"truncated utf8 is binary", "ab\xc3", wrapped(QString::fromLatin1(QByteArray("ab\xc3").toBase64()), "base64")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const QVariantMap decoded = decodeMessagePayload(c.payload);
        EXPECT_EQ(decoded, c.expected);
        // A wrapped payload gives back the exact bytes.
        if (decoded.value("encoding") == "base64") {
            EXPECT_EQ(QByteArray::fromBase64(decoded.value("payload").toString().toLatin1()), c.payload);
        } else if (decoded.value("encoding") == "utf8") {
            EXPECT_EQ(decoded.value("payload").toString().toUtf8(), c.payload);
        }
    }
}

TEST(MqttSettings, sectionIsReadWithDefaultsAndBounds)
{
    Nubra::ClientConfig config;
    QString message;
    Nubra::MqttSettings settings;
    EXPECT_FALSE(Nubra::MqttSettings::fromConfig(config, &settings, &message));

    config.merge({{"mqtt", QVariantMap{{"port", 1883}}}});
    EXPECT_FALSE(Nubra::MqttSettings::fromConfig(config, &settings, &message)) << "host is required";

    config.merge({{"mqtt", QVariantMap{{"host", "broker.example"}, {"caFile", "/etc/ca.pem"}, {"keepAlive", 1},
                                       {"reconnect", QVariantMap{{"initialDelayMs", 100}, {"maxDelayMs", 700},
                                                                 {"maxAttempts", 4}}}}}});
    ASSERT_TRUE(Nubra::MqttSettings::fromConfig(config, &settings, &message)) << message.toStdString();
    EXPECT_TRUE(settings.tls) << "a CA file implies TLS";
    EXPECT_EQ(settings.port, 8883);
    EXPECT_EQ(settings.keepAliveSeconds, 5) << "libmosquitto needs at least 5 s";
    EXPECT_EQ(settings.reconnectMaxAttempts, 4);
    const int expectedDelays[] = {100, 200, 400, 700, 700};
    for (int attempt = 1; attempt <= 5; ++attempt)
        EXPECT_EQ(settings.reconnectDelayMs(attempt), expectedDelays[attempt - 1]) << "attempt " << attempt;
}

TEST(MqttErrorMap, refusalsAndFailuresMapToTheirFamilies)
{
    using E = Nubra::Error;
    EXPECT_EQ(Nubra::errorForConnack(0), E::NoError);
    EXPECT_EQ(Nubra::errorForConnack(4), E::NotAuthorized);
    EXPECT_EQ(Nubra::errorForConnack(5), E::NotAuthorized);
    EXPECT_EQ(Nubra::errorForConnack(3), E::BrokerUnreachable);
    EXPECT_EQ(Nubra::errorForConnack(2), E::MessagingErrorOther);
    EXPECT_EQ(Nubra::errorForMosquitto(MOSQ_ERR_ERRNO), E::BrokerUnreachable);
    EXPECT_EQ(Nubra::errorForMosquitto(MOSQ_ERR_CONN_LOST), E::ConnectionLost);
    EXPECT_EQ(Nubra::errorForMosquitto(MOSQ_ERR_EAI), E::HostNotFound);
    EXPECT_EQ(Nubra::errorForMosquitto(MOSQ_ERR_TLS), E::SslHandshakeFailed);
    EXPECT_EQ(Nubra::errorForMosquitto(MOSQ_ERR_INVAL), E::InvalidArgument);
    EXPECT_EQ(Nubra::errorForMosquitto(9999), E::MessagingErrorOther);
}
