// SPDX-License-Identifier: MIT
// The client's message service on its own (Nubra::Manager) against the
// private dev cloud's broker: credentials, refusals and the give-up policy
// (restored subscriptions and the explicit end are in SubscribeBrokerTest,
// through the helper).

#include "BrokerTestSupport.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <memory>

namespace {

// The private cloud (and broker) of this binary, for all its files.
const bool g_cloud = VornTest::usePrivateCloud();

using BrokerTest::waitUntil;
using Nubra::Error;
using VornTest::ReplyPtr;

class MessageService : public ::testing::Test {
protected:
    void SetUp() override
    {
        manager = std::make_unique<Nubra::Manager>();
        ReplyPtr config(manager->setConfigPath(BrokerTest::cloud().configPath(), {}));
        ASSERT_EQ(config->status(), 0);
        token = BrokerTest::admin().signIn();
        ASSERT_FALSE(token.isEmpty());
    }
    void TearDown() override
    {
        ReplyPtr(manager->request("disconnectFromServer", {}, {}));
        BrokerTest::admin().post("/devcloud/broker/start");
    }

    // Starts "connectToServer" and waits for its finished().
    ReplyPtr connectAs(const QVariantMap& record, QVariantMap* finishedMap = nullptr)
    {
        ReplyPtr reply(manager->request("connectToServer", record, {}));
        EXPECT_EQ(reply->status(), 0);
        QSignalSpy finished(reply.get(), &Nubra::Reply::finished);
        EXPECT_TRUE(waitUntil([&] { return !finished.isEmpty(); }));
        if (finishedMap && !finished.isEmpty())
            *finishedMap = finished[0][0].toMap();
        return reply;
    }
    ReplyPtr subscribeTo(const QVariantList& topics)
    {
        ReplyPtr reply(manager->request("subscribe", {{"topic", topics}, {"qos", 0}}, {}));
        EXPECT_EQ(reply->status(), 0);
        QSignalSpy finished(reply.get(), &Nubra::Reply::finished);
        EXPECT_TRUE(waitUntil([&] { return !finished.isEmpty(); }));
        return reply;
    }
    // Shortens the reconnection policy of this manager.
    void useQuickReconnect(int maxAttempts)
    {
        QVariantMap mqtt = manager->configData().value("mqtt").toMap();
        mqtt["reconnect"] = QVariantMap{{"initialDelayMs", 50}, {"maxDelayMs", 200}, {"maxAttempts", maxAttempts}};
        ReplyPtr(manager->setConfigData({{"mqtt", mqtt}}, {}));
    }

    std::unique_ptr<Nubra::Manager> manager;
    QString token;
};

} // namespace

TEST_F(MessageService, credentialsAreCheckedByTheBroker)
{
    const struct {
        const char* name;
        QVariantMap record;
        Error::ErrorCode expected;
    } cases[] = {
        {"user token", {{"username", token}, {"serverAuthentication", 1u}}, Error::NoError},
        {"unknown token", {{"username", "forged-token"}, {"serverAuthentication", 1u}}, Error::NotAuthorized},
        {"no credentials", {{"serverAuthentication", 0u}}, Error::NotAuthorized},
        {"authentication without a name", {{"serverAuthentication", 1u}}, Error::NotAuthorized},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ReplyPtr reply(manager->request("connectToServer", c.record, {}));
        ASSERT_EQ(reply->status(), 0);
        QSignalSpy errors(reply.get(), &Nubra::Reply::errorOccurred);
        QSignalSpy connected(reply.get(), &Nubra::Reply::connected);
        QSignalSpy finished(reply.get(), &Nubra::Reply::finished);
        ASSERT_TRUE(waitUntil([&] { return !finished.isEmpty(); }));
        const QVariantMap map = finished[0][0].toMap();
        if (c.expected == Error::NoError) {
            EXPECT_TRUE(errors.isEmpty());
            EXPECT_EQ(connected.size(), 1);
            EXPECT_EQ(map.value("status").toString(), "success");
        } else {
            ASSERT_EQ(errors.size(), 1);
            EXPECT_EQ(errors[0][0].value<Error::ErrorCode>(), c.expected);
            EXPECT_EQ(map.value("errorCode").toInt(), int(c.expected));
            EXPECT_TRUE(connected.isEmpty());
        }
    }
}

TEST_F(MessageService, invalidRequestsAreRefusedAtOnce)
{
    const struct {
        const char* name;
        QVariantMap record;
        Error::ErrorCode expected;
    } subscribeCases[] = {
        {"no topic", {{"qos", 0}}, Error::InvalidArgument},
        {"empty list", {{"topic", QVariantList{}}}, Error::InvalidArgument},
        {"bad filter", {{"topic", QVariantList{"a/#/b"}}}, Error::InvalidArgument},
        {"bad qos", {{"topic", QVariantList{"a"}}, {"qos", 3}}, Error::InvalidArgument},
    };
    // Without a connection every subscribe is refused.
    ReplyPtr orphan(manager->request("subscribe", {{"topic", QVariantList{"a"}}}, {}));
    EXPECT_EQ(orphan->status(), int(Error::NotConnected));

    ReplyPtr connection = connectAs({{"username", token}, {"serverAuthentication", 1u}});
    for (const auto& c : subscribeCases) {
        SCOPED_TRACE(c.name);
        ReplyPtr reply(manager->request("subscribe", c.record, {}));
        EXPECT_EQ(reply->status(), int(c.expected));
    }
    ReplyPtr badMode(manager->request("connectToServer", {{"serverAuthentication", 7u}}, {}));
    EXPECT_EQ(badMode->status(), int(Error::InvalidArgument));
}

TEST_F(MessageService, unreachableBrokerFailsTheFirstConnectionWithoutRetrying)
{
    ASSERT_TRUE(BrokerTest::admin().post("/devcloud/broker/stop"));
    ReplyPtr reply(manager->request("connectToServer", {{"username", token}, {"serverAuthentication", 1u}}, {}));
    QSignalSpy errors(reply.get(), &Nubra::Reply::errorOccurred);
    ASSERT_TRUE(waitUntil([&] { return !errors.isEmpty(); }));
    EXPECT_EQ(errors[0][0].value<Error::ErrorCode>(), Error::BrokerUnreachable);
}

TEST_F(MessageService, givingUpReconnectingIsTheOnlyAbort)
{
    useQuickReconnect(3);
    ReplyPtr connection = connectAs({{"username", token}, {"serverAuthentication", 1u}});
    QSignalSpy dropped(connection.get(), &Nubra::Reply::disconnected);
    QSignalSpy aborted(connection.get(), qOverload<>(&Nubra::Reply::abort));
    ReplyPtr subscription = subscribeTo({"users/1001/giveup"});

    ASSERT_TRUE(BrokerTest::admin().post("/devcloud/broker/stop"));
    ASSERT_TRUE(waitUntil([&] { return !aborted.isEmpty(); }));
    EXPECT_EQ(aborted.size(), 1);
    EXPECT_EQ(dropped.size(), 1);

    // The connection is over: a new subscribe is refused.
    ASSERT_TRUE(BrokerTest::admin().post("/devcloud/broker/start"));
    ReplyPtr late(manager->request("subscribe", {{"topic", QVariantList{"x"}}}, {}));
    EXPECT_EQ(late->status(), int(Error::NotConnected));
}
