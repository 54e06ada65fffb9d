// SPDX-License-Identifier: MIT
// The message service over TLS against a dev cloud whose broker listens with
// TLS only (--broker-tls): the written configuration connects and delivers
// messages unchanged; a client that cannot verify the broker's certificate
// fails its connection with an error instead of connecting.

#include "BrokerTestSupport.h"
#include "TestFiles.h"
#include "TestCertificate.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QFile>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace {

using BrokerTest::waitUntil;
using Nubra::Error;
using VornTest::ReplyPtr;

class BrokerTls : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        cloud = new VornTest::DevCloudProcess({"--broker-tls"});
        ASSERT_TRUE(cloud->start()) << cloud->output().toStdString();
        admin = new VornTest::CloudAdmin(cloud->baseUrl());
    }
    static void TearDownTestSuite()
    {
        delete admin;
        delete cloud;
        cloud = nullptr;
    }

    void SetUp() override { ASSERT_TRUE(dir.isValid()); }

    // A copy of the written configuration with its "mqtt" section changed.
    QString configWith(const std::function<void(QJsonObject&)>& change)
    {
        QJsonObject config = VornTest::readJsonObject(cloud->configPath());
        QJsonObject mqtt = config.value("mqtt").toObject();
        change(mqtt);
        config.insert("mqtt", mqtt);
        const QString path = dir.filePath(QStringLiteral("config-%1.json").arg(++configs));
        return VornTest::writeFile(path, QJsonDocument(config).toJson()) ? path : QString();
    }
    // NUBRA_CONFIG (the binary's other cloud) would override the path.
    std::unique_ptr<Nubra::Manager> managerFor(const QString& configPath)
    {
        const QByteArray shared = qgetenv("NUBRA_CONFIG");
        qunsetenv("NUBRA_CONFIG");
        auto manager = std::make_unique<Nubra::Manager>();
        ReplyPtr config(manager->setConfigPath(configPath, {}));
        qputenv("NUBRA_CONFIG", shared);
        EXPECT_EQ(config->status(), 0);
        return manager;
    }

    static VornTest::DevCloudProcess* cloud;
    static VornTest::CloudAdmin* admin;
    QTemporaryDir dir;
    int configs = 0;
};

VornTest::DevCloudProcess* BrokerTls::cloud = nullptr;
VornTest::CloudAdmin* BrokerTls::admin = nullptr;

TEST_F(BrokerTls, theWrittenConfigurationConnectsOverTlsAndDeliversMessagesUnchanged)
{
    const QJsonObject mqtt = BrokerTest::mqttSection(*cloud);
    EXPECT_TRUE(mqtt.value("tls").toBool());
    ASSERT_TRUE(QFile::exists(mqtt.value("caFile").toString()));

    auto manager = managerFor(cloud->configPath());
    const QString token = admin->signIn();
    ASSERT_FALSE(token.isEmpty());
    ReplyPtr connection(manager->request("connectToServer", {{"username", token}, {"serverAuthentication", 1u}}, {}));
    ASSERT_EQ(connection->status(), 0);
    QSignalSpy connectErrors(connection.get(), &Nubra::Reply::errorOccurred);
    QSignalSpy connected(connection.get(), &Nubra::Reply::connected);
    ASSERT_TRUE(waitUntil([&] { return !connected.isEmpty() || !connectErrors.isEmpty(); }, 15000));
    ASSERT_TRUE(connectErrors.isEmpty()) << int(connectErrors[0][0].value<Error::ErrorCode>());

    ReplyPtr subscription(manager->request("subscribe", {{"topic", QVariantList{"users/1001/tls/#"}}, {"qos", 1}}, {}));
    ASSERT_EQ(subscription->status(), 0);
    QSignalSpy subscribed(subscription.get(), &Nubra::Reply::subscribed);
    QSignalSpy received(subscription.get(), &Nubra::Reply::received);
    ASSERT_TRUE(waitUntil([&] { return !subscribed.isEmpty(); }, 15000));

    // Published through the dev cloud, whose own publisher also speaks TLS.
    const QJsonObject payload{{"text", "über TLS"}, {"count", 3}};
    ASSERT_TRUE(admin->publish("users/1001/tls/device", payload));
    ASSERT_TRUE(waitUntil([&] { return !received.isEmpty(); }, 15000));
    EXPECT_EQ(received[0][0].toString(), "users/1001/tls/device");
    EXPECT_EQ(received[0][1].toMap(), payload.toVariantMap());
    ReplyPtr(manager->request("disconnectFromServer", {}, {}));
}

TEST_F(BrokerTls, aBrokerThatCannotBeVerifiedFailsTheConnection)
{
    // A self-signed certificate for the same address, not the broker's CA.
    const QString unrelated = dir.filePath("unrelated.pem");
    ASSERT_TRUE(VornTest::makeSelfSignedCertificate(unrelated, dir.filePath("unrelated.key")));
    const struct {
        const char* name;
        std::function<void(QJsonObject&)> change;
    } cases[] = {
        {"no caFile: the system's CAs", [](QJsonObject& mqtt) { mqtt.remove("caFile"); }},
        {"an unrelated certificate", [&](QJsonObject& mqtt) { mqtt.insert("caFile", unrelated); }},
    };
    const QString token = admin->signIn();
    ASSERT_FALSE(token.isEmpty());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = configWith(c.change);
        ASSERT_FALSE(path.isEmpty());
        auto manager = managerFor(path);
        ReplyPtr reply(manager->request("connectToServer", {{"username", token}, {"serverAuthentication", 1u}}, {}));
        QSignalSpy errors(reply.get(), &Nubra::Reply::errorOccurred);
        QSignalSpy connected(reply.get(), &Nubra::Reply::connected);
        QSignalSpy finished(reply.get(), &Nubra::Reply::finished);
        if (reply->status() != 0) {
            // Refused at once: still an error, never a connection.
            EXPECT_GE(reply->status(), 200);
            continue;
        }
        ASSERT_TRUE(waitUntil([&] { return !finished.isEmpty(); }, 15000));
        EXPECT_TRUE(connected.isEmpty());
        ASSERT_EQ(errors.size(), 1);
        const int code = int(errors[0][0].value<Error::ErrorCode>());
        // A TLS failure (3xx) or the connection given up (2xx / broker unreachable).
        EXPECT_TRUE((code >= 200 && code < 400) || code == int(Error::BrokerUnreachable)) << code;
        EXPECT_EQ(finished[0][0].toMap().value("errorCode").toInt(), code);
    }
}

} // namespace
