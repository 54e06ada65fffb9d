// SPDX-License-Identifier: MIT
// subscribe / disconnectFromServer with the cloud client scripted, for the
// outcomes that depend on the exact order of the client's signals.

#include "GlogCapture.h"
#include "HelperTestAccess.h"
#include "ScriptedService.h"

#include <VornNubraHelper.h>

#include <Nubra/Manager.h>

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTimer>

#include <gtest/gtest.h>

#include <memory>

using VornTest::ScriptedReply;
using VornTest::ScriptedService;

using Access = VornNubraHelperTestAccess;

namespace {

const QString kConnect = QStringLiteral("connectToServer");
const QString kSubscribe = QStringLiteral("subscribe");
const QString kDisconnect = QStringLiteral("disconnectFromServer");
const QList<QVariant> kTopics{QStringLiteral("devices/VS2024000123/status"), QStringLiteral("users/1001/#")};

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }

void flushDeferredDeletes() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

class Subscribe : public ::testing::Test {
protected:
    void SetUp() override
    {
        helper()->setUserToken(QStringLiteral("token-1001"));
        service = std::make_unique<ScriptedService>(helperManager(), QStringList{kConnect, kSubscribe, kDisconnect});
    }
    void TearDown() override
    {
        // The helper's replies belong to this test's scripted service.
        Access::resetConnection(helper());
        flushDeferredDeletes();
        service.reset();
    }
    // The connect request answers at once; the subscribe request gets
    // `subscribeStatus`.
    void scriptAcceptedConnection(int subscribeStatus = 0)
    {
        service->answerAfter(kConnect, 0, {{"status", "success"}});
        service->setStatus(kSubscribe, subscribeStatus);
    }

    std::unique_ptr<ScriptedService> service;
    VornTest::GlogCapture log;
};

} // namespace

TEST_F(Subscribe, connectRecordCarriesTheTokenOnlyWhenAUserNameIsGiven)
{
    const struct {
        QString userName;
        QVariantMap expected;
    } cases[] = {
        {QString(), {{"serverAuthentication", 1u}}},
        {QStringLiteral("anything"), {{"username", "token-1001"}, {"serverAuthentication", 1u}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.userName.toStdString());
        Access::resetConnection(helper());
        service->calls.clear();
        EXPECT_EQ(helper()->subscribe(c.userName, QStringLiteral("ignored"), kTopics, 0), 1);
        ASSERT_EQ(service->calls.size(), 1);
        EXPECT_EQ(service->calls[0].name, kConnect);
        EXPECT_EQ(service->calls[0].record, c.expected);
        EXPECT_EQ(service->calls[0].record.value("serverAuthentication").userType(), QMetaType::UInt);
        EXPECT_TRUE(service->calls[0].options.isEmpty());
    }
}

TEST_F(Subscribe, timeoutZeroEndsOnTheNextTurnAndDropsAnUnansweredConnection)
{
    EXPECT_EQ(helper()->subscribe(QStringLiteral("u"), {}, kTopics, 0), 1);
    EXPECT_FALSE(Access::connected(helper()));
    EXPECT_EQ(Access::connectReply(helper()), nullptr);
    flushDeferredDeletes();
    EXPECT_TRUE(service->calls[0].reply.isNull()) << "the released connect reply is deleted later";
    EXPECT_TRUE(log.contains("Nubra Subscribe end."));
}

TEST_F(Subscribe, acceptedSubscriptionWaitsForItsTimeoutAndRelaysMessagesAfterwards)
{
    scriptAcceptedConnection();
    service->answerAfter(kSubscribe, 0, {{"status", "success"}});
    EXPECT_EQ(helper()->subscribe(QStringLiteral("u"), {}, kTopics, 50), 1);
    EXPECT_TRUE(Access::connected(helper()));
    EXPECT_TRUE(log.contains("subscribed success"));

    const auto subscribes = service->callsNamed(kSubscribe);
    ASSERT_EQ(subscribes.size(), 1);
    EXPECT_EQ(subscribes[0].record, (QVariantMap{{"topic", QVariant(kTopics)}, {"qos", 0}}));
    EXPECT_TRUE(subscribes[0].options.isEmpty());

    QSignalSpy data(helper(), &VornNubraHelper::subscribeData);
    ASSERT_TRUE(subscribes[0].reply);
    subscribes[0].reply->sendReceived("users/1001/inbox", {{"seq", 1}});
    subscribes[0].reply->sendReceived("devices/VS2024000123/status", {{"seq", 2}});
    ASSERT_EQ(data.size(), 2);
    EXPECT_EQ(data[0][0].toString(), "users/1001/inbox");
    EXPECT_EQ(data[0][1].toMap(), (QVariantMap{{"seq", 1}}));
    EXPECT_EQ(data[1][1].toMap(), (QVariantMap{{"seq", 2}}));
    EXPECT_EQ(log.texts().count("Nubra Subscribe received Success"), 2);

    // Connected: a second call sends nothing.
    const int callsBefore = service->calls.size();
    EXPECT_EQ(helper()->subscribe(QStringLiteral("u"), {}, kTopics, 60000), 0);
    EXPECT_EQ(service->calls.size(), callsBefore);
}

// Every way a 60 s wait ends early: its code, the connected flag after it,
// the log line; the held replies are released either way.
TEST_F(Subscribe, earlyEndsOfTheWaitGiveTheirCodes)
{
    // Connect answered, then `event` on the connection during the wait.
    const auto connectedThen = [](std::function<void(ScriptedReply*)> event) {
        return [event](ScriptedService& s) {
            s.setScript(kConnect, [event](ScriptedReply* reply, const ScriptedService::Call&) {
                QTimer::singleShot(0, reply, [reply, event] {
                    reply->sendFinished({{"status", "success"}});
                    QTimer::singleShot(0, reply, [reply, event] { event(reply); });
                });
            });
        };
    };
    const struct {
        const char* what;
        std::function<void(ScriptedService&)> script;
        int code;
        bool connected;
        QString logLine;
    } cases[] = {
        // Refused connect: 5 at once, no subscribe sent.
        {"connect refused by status", [](ScriptedService& s) { s.setStatus(kConnect, 105); }, 5, false, {}},
        {"connect without a reply", [](ScriptedService& s) { s.setNullReply(kConnect); }, 5, false, {}},
        // A rejected subscription still counts as connected.
        {"subscription refused",
         [](ScriptedService& s) {
             s.answerAfter(kConnect, 0, {{"status", "success"}});
             s.setStatus(kSubscribe, 502);
         },
         0, true, {}},
        {"connection aborted", connectedThen([](ScriptedReply* r) { r->sendAbort(); }), 0, false,
         "Nubra Subscribe Disconnected"},
        {"connection error", connectedThen([](ScriptedReply* r) { r->sendError(Nubra::Error::ConnectionLost); }), 0,
         false, "Nubra Subscribe errorOccurred503"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Access::resetConnection(helper());
        service = std::make_unique<ScriptedService>(helperManager(), QStringList{kConnect, kSubscribe, kDisconnect});
        c.script(*service);
        EXPECT_EQ(helper()->subscribe(QStringLiteral("u"), {}, kTopics, 60000), c.code);
        EXPECT_EQ(Access::connected(helper()), c.connected);
        EXPECT_EQ(Access::connectReply(helper()), nullptr);
        EXPECT_EQ(Access::subscribeReply(helper()), nullptr);
        EXPECT_EQ(service->callsNamed(kSubscribe).size(), c.code == 5 ? 0 : 1);
        if (!c.logLine.isEmpty()) {
            EXPECT_TRUE(log.contains(c.logLine));
        }
        if (c.connected) { // a second call sends nothing
            EXPECT_EQ(helper()->subscribe(QStringLiteral("u"), {}, kTopics, 60000), 0);
            EXPECT_EQ(service->callsNamed(kConnect).size(), 1);
        }
    }
}

TEST_F(Subscribe, abortAfterReturnOnlyClearsTheFlag)
{
    scriptAcceptedConnection();
    EXPECT_EQ(helper()->subscribe(QStringLiteral("u"), {}, kTopics, 20), 1);
    ASSERT_TRUE(Access::connected(helper()));
    auto* connectReply = static_cast<ScriptedReply*>(Access::connectReply(helper()));
    ASSERT_NE(connectReply, nullptr);
    connectReply->sendAbort();
    EXPECT_FALSE(Access::connected(helper()));
    EXPECT_EQ(Access::connectReply(helper()), connectReply) << "replies stay until the next subscribe";
    EXPECT_NE(Access::subscribeReply(helper()), nullptr);
}

TEST_F(Subscribe, onlyThePreviousSubscriptionsErrorEndsTheWaitWithNine)
{
    // First subscription, then an explicit disconnect: its reply stays held.
    scriptAcceptedConnection();
    EXPECT_EQ(helper()->subscribe(QStringLiteral("u"), {}, kTopics, 20), 1);
    EXPECT_EQ(helper()->disconnectFromServer(), 0);
    auto* previous = static_cast<ScriptedReply*>(Access::subscribeReply(helper()));
    ASSERT_NE(previous, nullptr);

    // Second call: the connection never answers, the old subscription fails.
    service->setScript(kConnect, [previous](ScriptedReply* reply, const ScriptedService::Call&) {
        QTimer::singleShot(0, reply, [previous] { previous->sendError(Nubra::Error::ConnectionLost); });
    });
    EXPECT_EQ(helper()->subscribe(QStringLiteral("u"), {}, kTopics, 60000), 9);
    EXPECT_TRUE(log.contains("Nubra Subscribe ErrorOccurred: 503"));
    EXPECT_EQ(Access::subscribeReply(helper()), nullptr);

    // The new subscription reply's errors are not watched: the wait runs out.
    Access::resetConnection(helper());
    scriptAcceptedConnection();
    service->setScript(kSubscribe, [](ScriptedReply* reply, const ScriptedService::Call&) {
        QTimer::singleShot(0, reply, [reply] { reply->sendError(Nubra::Error::SubscribeRejected); });
    });
    EXPECT_EQ(helper()->subscribe(QStringLiteral("u"), {}, kTopics, 50), 1);
}

TEST_F(Subscribe, disconnectResultsAndTheFlag)
{
    Access::connected(helper()) = true;
    service->setStatus(kDisconnect, 105);
    EXPECT_EQ(helper()->disconnectFromServer(), 5);
    EXPECT_TRUE(Access::connected(helper())) << "a rejected disconnect keeps the flag";
    EXPECT_TRUE(log.contains("Nubra disconnectFromServer error: 105"));

    service->setNullReply(kDisconnect);
    EXPECT_EQ(helper()->disconnectFromServer(), 5);

    service = std::make_unique<ScriptedService>(helperManager(), QStringList{kConnect, kSubscribe, kDisconnect});
    EXPECT_EQ(helper()->disconnectFromServer(), 0);
    EXPECT_FALSE(Access::connected(helper()));
    EXPECT_TRUE(log.contains("Nubra disconnectFromServer success."));
    ASSERT_EQ(service->calls.size(), 1);
    EXPECT_TRUE(service->calls[0].record.isEmpty());
}

