// SPDX-License-Identifier: MIT
// The helper's subscription against a real mosquitto broker run by a
// private dev cloud: helper -> nubra message service -> broker.

#include "BrokerTestSupport.h"
#include "HelperTestAccess.h"
#include "GlogCapture.h"

#include <VornNubraHelper.h>

#include <Nubra/Reply.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace {

// The private cloud of this binary.
const bool g_cloud = VornTest::usePrivateCloud();

using BrokerTest::waitUntil;

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }

struct Message {
    QString topic;
    QVariantMap data;
};

// Records subscribeData in arrival order.
class Recorder {
public:
    Recorder()
    {
        m_connection = QObject::connect(helper(), &VornNubraHelper::subscribeData,
                                        [this](const QString& topic, const QVariantMap& data) {
                                            messages.append({topic, data});
                                        });
    }
    ~Recorder() { QObject::disconnect(m_connection); }
    QList<Message> messages;

private:
    QMetaObject::Connection m_connection;
};

class BrokerSubscribe : public ::testing::Test {
protected:
    void SetUp() override
    {
        const QString token = BrokerTest::admin().signIn();
        ASSERT_FALSE(token.isEmpty());
        helper()->setUserToken(token);
    }
    void TearDown() override
    {
        helper()->disconnectFromServer();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
};

QList<QByteArray> jsonSequence(const QString& tag, int count)
{
    QList<QByteArray> payloads;
    for (int i = 0; i < count; ++i)
        payloads.append(QJsonDocument(QJsonObject{{"tag", tag}, {"seq", i}, {"text", QString::fromUtf8("Gr\xc3\xbc\xc3\x9f")}})
                            .toJson(QJsonDocument::Compact));
    return payloads;
}

// Publishes a probe until one arrives: the subscription is live again.
bool probeUntilDelivered(Recorder& recorder, const QString& topic)
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        const int before = recorder.messages.size();
        if (!BrokerTest::admin().publish(topic, {{"probe", attempt}}))
            return false;
        if (waitUntil([&] { return recorder.messages.size() > before; }, 200))
            return true;
    }
    return false;
}

} // namespace

TEST_F(BrokerSubscribe, publishedMessagesArriveInOrderWithTopicAndDataUnchanged)
{
    Recorder recorder;
    VornTest::GlogCapture log;
    EXPECT_EQ(helper()->subscribe("demo", {}, {"users/1001/test/order/#", "users/1001/test/plain"}, 300), 1);
    EXPECT_TRUE(VornNubraHelperTestAccess::connected(helper()));
    EXPECT_TRUE(log.contains("subscribed success"));

    const QList<QByteArray> objects = jsonSequence("order", 50);
    ASSERT_TRUE(BrokerTest::mosquittoPub("users/1001/test/order/a", objects));
    const QList<QByteArray> texts{"first line", "[1,2,3]", "{not json"};
    ASSERT_TRUE(BrokerTest::mosquittoPub("users/1001/test/plain", texts));
    ASSERT_TRUE(BrokerTest::mosquittoPub("users/1001/test/unrelated", {"{\"x\":1}"}));
    ASSERT_TRUE(BrokerTest::mosquittoPub("users/1001/test/order/b/c", {"{\"last\":true}"}));

    const int expected = objects.size() + texts.size() + 1;
    ASSERT_TRUE(waitUntil([&] { return recorder.messages.size() >= expected; }));
    ASSERT_EQ(recorder.messages.size(), expected) << "nothing from unsubscribed topics";
    for (int i = 0; i < objects.size(); ++i) {
        EXPECT_EQ(recorder.messages[i].topic, "users/1001/test/order/a");
        EXPECT_EQ(recorder.messages[i].data, QJsonDocument::fromJson(objects[i]).object().toVariantMap()) << i;
    }
    for (int i = 0; i < texts.size(); ++i) {
        const Message& m = recorder.messages[objects.size() + i];
        EXPECT_EQ(m.topic, "users/1001/test/plain");
        EXPECT_EQ(m.data, (QVariantMap{{"payload", QString::fromUtf8(texts[i])}, {"encoding", "utf8"}}));
    }
    EXPECT_EQ(recorder.messages.last().topic, "users/1001/test/order/b/c");
    EXPECT_EQ(recorder.messages.last().data, (QVariantMap{{"last", true}}));
}

TEST_F(BrokerSubscribe, secondSubscribeWhileConnectedReturnsZeroAndKeepsTheFirstSubscription)
{
    Recorder recorder;
    EXPECT_EQ(helper()->subscribe("demo", {}, {"users/1001/test/first"}, 200), 1);
    EXPECT_EQ(helper()->subscribe("demo", {}, {"users/1001/test/second"}, 60000), 0);
    ASSERT_TRUE(BrokerTest::admin().publish("users/1001/test/second", {{"n", 1}}));
    ASSERT_TRUE(BrokerTest::admin().publish("users/1001/test/first", {{"n", 2}}));
    ASSERT_TRUE(waitUntil([&] { return !recorder.messages.isEmpty(); }));
    // Same publisher connection: "second" would have come first.
    EXPECT_EQ(recorder.messages.first().topic, "users/1001/test/first");
}

TEST_F(BrokerSubscribe, disconnectEndsTheFlowAndANewSubscribeStartsAgain)
{
    Recorder recorder;
    EXPECT_EQ(helper()->subscribe("demo", {}, {"users/1001/test/old"}, 200), 1);
    QSignalSpy aborted(VornNubraHelperTestAccess::connectReply(helper()), qOverload<>(&Nubra::Reply::abort));
    EXPECT_EQ(helper()->disconnectFromServer(), 0);
    EXPECT_TRUE(aborted.isEmpty()) << "an explicit end is not an abort";
    EXPECT_FALSE(VornNubraHelperTestAccess::connected(helper()));
    EXPECT_EQ(helper()->subscribe("demo", {}, {"users/1001/test/new"}, 200), 1);

    ASSERT_TRUE(BrokerTest::admin().publish("users/1001/test/old", {{"n", 1}}));
    ASSERT_TRUE(BrokerTest::admin().publish("users/1001/test/new", {{"n", 2}}));
    ASSERT_TRUE(waitUntil([&] { return !recorder.messages.isEmpty(); }));
    ASSERT_EQ(recorder.messages.size(), 1);
    EXPECT_EQ(recorder.messages.first().topic, "users/1001/test/new");
}

TEST_F(BrokerSubscribe, messagesPublishedAfterABrokerRestartStillArrive)
{
    Recorder recorder;
    EXPECT_EQ(helper()->subscribe("demo", {}, {"users/1001/test/restart"}, 200), 1);
    Nubra::Reply* connection = VornNubraHelperTestAccess::connectReply(helper());
    ASSERT_NE(connection, nullptr);
    QSignalSpy dropped(connection, &Nubra::Reply::disconnected);
    QSignalSpy reconnected(connection, &Nubra::Reply::connected);
    QSignalSpy aborted(connection, qOverload<>(&Nubra::Reply::abort));
    ASSERT_TRUE(BrokerTest::admin().post("/devcloud/broker/restart", {{"downMs", 300}}));

    // The client restores the connection and the subscription by itself.
    ASSERT_TRUE(probeUntilDelivered(recorder, "users/1001/test/restart"));
    EXPECT_TRUE(VornNubraHelperTestAccess::connected(helper())) << "a restored connection is not an abort";
    EXPECT_EQ(dropped.size(), 1);
    EXPECT_EQ(reconnected.size(), 1);
    EXPECT_TRUE(aborted.isEmpty());
    recorder.messages.clear();
    const QList<QByteArray> payloads = jsonSequence("restart", 20);
    ASSERT_TRUE(BrokerTest::mosquittoPub("users/1001/test/restart", payloads));
    ASSERT_TRUE(waitUntil([&] { return recorder.messages.size() >= payloads.size(); }));
    for (int i = 0; i < payloads.size(); ++i)
        EXPECT_EQ(recorder.messages[i].data.value("seq").toInt(), i);
}

// Refusals end the 60 s wait at once with 0 (not the 1 of a subscription
// that ran its full wait).
TEST_F(BrokerSubscribe, refusalsByTheBrokerEndTheWaitWithZero)
{
    const struct {
        const char* what;
        QString userName;
        QString token; // empty: the signed-in user's
        QString topic;
        bool staysConnected;
    } cases[] = {
        {"a token the broker does not know", "demo", "not-a-token-of-this-cloud", "users/1001/test/denied", false},
        {"no user name: no credential is sent", QString(), QString(), "users/1001/test/anonymous", false},
        {"invalid topic filter: connected, subscription rejected", "demo", QString(), "vorn/#/bad", true},
    };
    const QString signedIn = BrokerTest::admin().signIn();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        helper()->setUserToken(c.token.isEmpty() ? signedIn : c.token);
        VornTest::GlogCapture log;
        EXPECT_EQ(helper()->subscribe(c.userName, {}, {c.topic}, 60000), 0);
        EXPECT_FALSE(log.contains("subscribed success"));
        if (c.staysConnected) {
            EXPECT_TRUE(VornNubraHelperTestAccess::connected(helper())) << "kept set after a rejected subscription";
        }
        helper()->disconnectFromServer();
    }
}
