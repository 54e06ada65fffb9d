// SPDX-License-Identifier: MIT
// The broker's permissions: a user's token may subscribe and publish only on
// the topics of that user ("users/ID/#") and of the user's devices
// ("devices/SN/#"); the dev cloud's publisher may use every topic. Each
// check ends with a barrier message on a topic the receiver may read: once it
// arrives, anything published before it would have arrived too.

#include "BrokerTestSupport.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QFile>
#include <QProcess>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using BrokerTest::waitUntil;
using VornTest::ReplyPtr;

QString signIn(const QString& account, const QString& password)
{
    const QJsonObject answer =
        BrokerTest::admin().call("POST", "/api/v1/user/login", {{"account", account}, {"password", password}});
    return answer["result"]["token"].toString();
}

// One user's connection with its subscriptions, recording every topic that
// arrives on any of them.
class Subscriber {
public:
    explicit Subscriber(const QString& token)
    {
        ReplyPtr config(m_manager.setConfigPath(BrokerTest::cloud().configPath(), {}));
        m_connection.reset(m_manager.request("connectToServer", {{"username", token}, {"serverAuthentication", 1u}}, {}));
        QSignalSpy connected(m_connection.get(), &Nubra::Reply::connected);
        m_ok = waitUntil([&] { return !connected.isEmpty(); });
    }
    bool ok() const { return m_ok; }
    // Subscribes and waits for the broker's answer (granted or refused).
    void subscribe(const QString& filter)
    {
        ReplyPtr reply(m_manager.request("subscribe", {{"topic", QVariantList{filter}}, {"qos", 1}}, {}));
        QSignalSpy finished(reply.get(), &Nubra::Reply::finished);
        QObject::connect(reply.get(), &Nubra::Reply::received,
                         [this](const QString& topic, const QVariantMap&) { topics.append(topic); });
        EXPECT_TRUE(waitUntil([&] { return !finished.isEmpty(); }));
        m_subscriptions.push_back(std::move(reply));
    }
    bool waitFor(const QString& topic) { return waitUntil([&] { return topics.contains(topic); }); }

    QStringList topics;

private:
    Nubra::Manager m_manager;
    ReplyPtr m_connection;
    std::vector<ReplyPtr> m_subscriptions;
    bool m_ok = false;
};

// Publishes as a user (the token is its own password), QoS 1: the broker has
// taken (or silently dropped) the message when this returns.
bool publishAs(const QString& token, const QString& topic)
{
    const QJsonObject mqtt = BrokerTest::mqttSection();
    QProcess pub;
    pub.start("mosquitto_pub", {"-h", mqtt.value("host").toString(), "-p", QString::number(mqtt.value("port").toInt()),
                                "-u", token, "-P", token, "-t", topic, "-q", "1", "-m", "{\"from\": \"user\"}"});
    return pub.waitForFinished(15000) && pub.exitStatus() == QProcess::NormalExit && pub.exitCode() == 0;
}

class BrokerPermissions : public ::testing::Test {
protected:
    void SetUp() override
    {
        demoToken = signIn("demo@vorn.example", "scan3d!");
        aliceToken = signIn("alice@vorn.example", "alice-pass");
        ASSERT_FALSE(demoToken.isEmpty());
        ASSERT_FALSE(aliceToken.isEmpty());
    }
    QString demoToken, aliceToken;
};

} // namespace

TEST_F(BrokerPermissions, anotherUsersWildcardSubscriptionReceivesNothingOfTheirs)
{
    Subscriber demo(demoToken), alice(aliceToken);
    ASSERT_TRUE(demo.ok() && alice.ok());
    demo.subscribe("devices/VS2024000123/#");
    alice.subscribe("#");
    alice.subscribe("devices/+/status");
    alice.subscribe("users/1002/#");

    ASSERT_TRUE(BrokerTest::admin().publish("devices/VS2024000123/status", {{"n", 1}}));
    ASSERT_TRUE(BrokerTest::admin().publish("users/1001/notice", {{"n", 2}}));
    ASSERT_TRUE(BrokerTest::admin().publish("users/1002/barrier", {{"n", 3}}));
    ASSERT_TRUE(alice.waitFor("users/1002/barrier"));
    EXPECT_TRUE(demo.waitFor("devices/VS2024000123/status")) << "the owner receives it";
    alice.topics.removeDuplicates(); // "#" and "users/1002/#" both match the barrier
    EXPECT_EQ(alice.topics, QStringList{"users/1002/barrier"});

    // Tokens are user names: the broker's log must not name them.
    QFile log(BrokerTest::mqttSection().value("devcloud").toObject().value("brokerLog").toString());
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QByteArray text = log.readAll();
    EXPECT_FALSE(text.contains(demoToken.toUtf8()));
    EXPECT_FALSE(text.contains(aliceToken.toUtf8()));
}

TEST_F(BrokerPermissions, aPublishToAnotherUsersDeviceTopicDoesNotArrive)
{
    Subscriber demo(demoToken);
    ASSERT_TRUE(demo.ok());
    demo.subscribe("devices/VS2024000123/#");
    demo.subscribe("users/1001/#");

    ASSERT_TRUE(publishAs(aliceToken, "devices/VS2024000123/command"));
    ASSERT_TRUE(publishAs(aliceToken, "users/1001/command"));
    ASSERT_TRUE(publishAs(demoToken, "devices/VS2024000123/own"));
    ASSERT_TRUE(demo.waitFor("devices/VS2024000123/own")) << "a user may publish to the own device";
    EXPECT_EQ(demo.topics, QStringList{"devices/VS2024000123/own"});
}

TEST_F(BrokerPermissions, permissionsFollowADeviceToItsNewOwner)
{
    const QString device = "devices/VS2099000001/status";
    ASSERT_TRUE(BrokerTest::admin().post("/devcloud/device/owner", {{"sn", "VS2099000001"}, {"userID", 1002}}));
    Subscriber demo(demoToken), alice(aliceToken);
    ASSERT_TRUE(demo.ok() && alice.ok());
    demo.subscribe("devices/VS2099000001/#");
    demo.subscribe("users/1001/#");
    alice.subscribe("devices/VS2099000001/#");
    alice.subscribe("users/1002/#");

    ASSERT_TRUE(BrokerTest::admin().publish(device, {{"owner", 1002}}));
    ASSERT_TRUE(alice.waitFor(device));
    ASSERT_TRUE(BrokerTest::admin().publish("users/1001/barrier", {{"n", 1}}));
    ASSERT_TRUE(demo.waitFor("users/1001/barrier"));
    EXPECT_FALSE(demo.topics.contains(device)) << "not the demo user's device yet";

    // The answer comes once the broker has reloaded its permissions.
    ASSERT_TRUE(BrokerTest::admin().post("/devcloud/device/owner", {{"sn", "VS2099000001"}, {"userID", 1001}}));
    demo.subscribe("devices/VS2099000001/#");
    alice.topics.clear();
    ASSERT_TRUE(BrokerTest::admin().publish(device, {{"owner", 1001}}));
    ASSERT_TRUE(demo.waitFor(device));
    ASSERT_TRUE(BrokerTest::admin().publish("users/1002/barrier", {{"n", 2}}));
    ASSERT_TRUE(alice.waitFor("users/1002/barrier"));
    EXPECT_EQ(alice.topics, QStringList{"users/1002/barrier"}) << "the former owner no longer receives it";
}
