// SPDX-License-Identifier: MIT
// The four blocking catalogue calls: result codes, the records they send,
// what they write into the caller's result, and their waits (time-out, late
// answers, a call started from inside another call's wait).

#include "HelperTestSupport.h"

#include <ScriptedService.h>
#include <Waiting.h>

#include <QCoreApplication>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <memory>

using NubraCommon::ErrorCode;
using NubraCommon::Interface;
using VornTest::ScriptedService;

namespace {

enum class Call { Post, PostV1, PostV2, Get };
const Call kAllCalls[] = {Call::Post, Call::PostV1, Call::PostV2, Call::Get};

const char* callName(Call call)
{
    switch (call) {
    case Call::Post: return "post";
    case Call::PostV1: return "postv1";
    case Call::PostV2: return "postv2";
    case Call::Get: return "get";
    }
    return "?";
}

// What a call was given and what it left behind.
struct CallOutcome {
    ErrorCode code = NubraCommon::Success;
    QVariant result;
};

const QVariantMap kUntouched{{"untouched", true}};

// Runs one call. map is the body (post variants) or the one map of get;
// params and headers are used by the variants that take them.
CallOutcome runCall(VornNubraHelper* helper, Call call, Interface iface, const QVariantMap& map, int timeoutMs,
            const QVariantMap& params = {}, const QVariantMap& headers = {})
{
    CallOutcome run;
    QVariantMap result = kUntouched;
    QVariant result2 = kUntouched;
    switch (call) {
    case Call::Post: run.code = helper->post(iface, map, result, params, timeoutMs); break;
    case Call::PostV1: run.code = helper->postv1(iface, headers, map, result, params, timeoutMs); break;
    case Call::PostV2: run.code = helper->postv2(iface, map, result2, params, timeoutMs); break;
    case Call::Get: run.code = helper->get(iface, map, result, timeoutMs); break;
    }
    run.result = call == Call::PostV2 ? result2 : QVariant(result);
    return run;
}

class BlockingCalls : public ::testing::Test {
protected:
    void SetUp() override
    {
        helper = VornNubraHelper::getInstance();
        ASSERT_NE(helper, nullptr);
        helper->setUserToken("token-of-test");
        service = std::make_unique<ScriptedService>(helperManager());
    }
    void TearDown() override
    {
        // Deferred deletions of replies and loops run before the service
        // (which deletes replies still alive) goes.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        service.reset();
    }

    VornNubraHelper* helper = nullptr;
    std::unique_ptr<ScriptedService> service;
};

} // namespace

// Every outcome of a started request, for each of the four calls.
TEST_F(BlockingCalls, resultCodeAndResultForEachOutcome)
{
    const QVariantMap payload{{"countries", QVariantList{"DE", "GB"}}};
    using Script = std::function<void(ScriptedService&)>;
    const auto answer = [](const QVariantMap& map) -> Script {
        return [map](ScriptedService& s) { s.answerAfter("fetchCountries", 0, map); };
    };
    struct Case {
        const char* what;
        Script script;
        int timeoutMs;
        ErrorCode expected;
        QVariantMap answer; // the reply map handed over, empty: result untouched
    };
    const QVariantMap success{{"status", "success"}, {"result", payload}};
    const QVariantMap failure{{"status", "failure"}, {"result", payload}, {"message", "no"}};
    const QVariantMap otherCase{{"status", "Success"}, {"result", payload}};
    const QVariantMap noStatus{{"result", payload}};
    const Case cases[] = {
        {"success", answer(success), 5000, NubraCommon::Success, success},
        {"server failure", answer(failure), 5000, NubraCommon::ResponseFailed, failure},
        {"status compared case-sensitively", answer(otherCase), 5000, NubraCommon::ResponseFailed, otherCase},
        {"status missing", answer(noStatus), 5000, NubraCommon::ResponseFailed, noStatus},
        {"error signal, then finished",
         [](ScriptedService& s) { s.errorAfter("fetchCountries", 0, Nubra::Error::TimedOut); }, 5000,
         NubraCommon::TransportError, {}},
        {"no answer before the time-out", [](ScriptedService&) {}, 30, NubraCommon::Timeout, {}},
        {"refused: non-zero status",
         [](ScriptedService& s) { s.setStatus("fetchCountries", Nubra::Error::UnknownRequest); }, 5000,
         NubraCommon::RequestRejected, {}},
        {"refused: no reply", [](ScriptedService& s) { s.setNullReply("fetchCountries"); }, 5000,
         NubraCommon::RequestRejected, {}},
    };
    for (const Case& c : cases) {
        for (Call call : kAllCalls) {
            SCOPED_TRACE(std::string(c.what) + " / " + callName(call));
            service = std::make_unique<ScriptedService>(helperManager());
            c.script(*service);
            const CallOutcome run = runCall(helper, call, Interface::FetchCountries, {}, c.timeoutMs);
            EXPECT_EQ(int(run.code), int(c.expected));
            EXPECT_EQ(service->calls.size(), 1);
            if (c.answer.isEmpty())
                EXPECT_EQ(run.result.toMap(), kUntouched);
            else if (call == Call::Get)
                EXPECT_EQ(run.result.toMap(), c.answer) << "get hands over the whole reply map";
            else
                EXPECT_EQ(run.result.toMap(), payload);
        }
    }
}

// The calls release what they created: the reply is deleted on a later loop
// turn, also when it was refused.
TEST_F(BlockingCalls, repliesAreReleasedAfterTheCall)
{
    service->answerAfter("fetchCountries", 0, {{"status", "success"}});
    service->setStatus("getDeviceAction", Nubra::Error::UnknownRequest);
    for (Call call : kAllCalls) {
        SCOPED_TRACE(callName(call));
        runCall(helper, call, Interface::FetchCountries, {}, 5000);
        runCall(helper, call, Interface::GetDeviceAction, {{"sn", "X"}}, 5000);
    }
    ASSERT_EQ(service->calls.size(), 8);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    for (const auto& c : service->calls)
        EXPECT_TRUE(c.reply.isNull()) << c.name.toStdString();
}

// postv2 hands "result" over as it is, also when it is not a map.
TEST_F(BlockingCalls, postv2KeepsResultAsIs)
{
    const QVariantList list{1, "two", 3.5};
    service->answerAfter("fetchCountries", 0, {{"status", "success"}, {"result", list}});
    QVariant result;
    EXPECT_EQ(helper->postv2(Interface::FetchCountries, {}, result, {}, 5000), NubraCommon::Success);
    EXPECT_EQ(result.toList(), list);

    QVariantMap asMap = kUntouched;
    EXPECT_EQ(helper->post(Interface::FetchCountries, {}, asMap, {}, 5000), NubraCommon::Success);
    EXPECT_TRUE(asMap.isEmpty()) << "post converts a non-map result to an empty map";
}

// Failures found before anything is sent: nothing reaches the client.
TEST_F(BlockingCalls, refusedBeforeSending)
{
    struct Case {
        const char* what;
        Interface iface;
        QVariantMap map; // body, or get's one map
        QVariantMap params;
        ErrorCode expected;
    };
    const QVariantMap upgradeBody{{"checkModels", 1}, {"checkModulars", 1}, {"maxPtach", 1},
                                  {"modelCode", "VS-200"}, {"osType", "linux"}, {"versionType", "release"}};
    QVariantMap upgradeWithFixedSpelling = upgradeBody;
    upgradeWithFixedSpelling.remove("maxPtach");
    upgradeWithFixedSpelling.insert("maxPatch", 1);
    const Case cases[] = {
        {"value 7 is not in the catalogue", Interface(7), {}, {}, NubraCommon::UnknownInterface},
        {"value 12 is not in the catalogue", Interface(12), {}, {}, NubraCommon::UnknownInterface},
        {"negative value", Interface(-1), {}, {}, NubraCommon::UnknownInterface},
        {"largest value", Interface(127), {}, {}, NubraCommon::UnknownInterface},
        {"required key missing", Interface::GetUserProfile, {}, {}, NubraCommon::MissingField},
        {"required key only in params", Interface::GetDeviceAction, {}, {{"sn", "X"}}, NubraCommon::MissingField},
        {"one of three keys missing", Interface::ParseScanPackage, {{"sn", "X"}, {"dfsID", "d"}}, {},
         NubraCommon::MissingField},
        {"\"maxPatch\" does not satisfy \"maxPtach\"", Interface::Upgrade, upgradeWithFixedSpelling, {},
         NubraCommon::MissingField},
    };
    for (const Case& c : cases) {
        for (Call call : kAllCalls) {
            SCOPED_TRACE(std::string(c.what) + " / " + callName(call));
            service->calls.clear();
            const CallOutcome run = runCall(helper, call, c.iface, c.map, 5000, c.params);
            EXPECT_EQ(int(run.code), int(c.expected));
            EXPECT_EQ(run.result.toMap(), kUntouched);
            EXPECT_TRUE(service->calls.isEmpty());
        }
    }

    // The correct spelling passes the check.
    service->answerAfter("upgrade", 0, {{"status", "success"}});
    QVariantMap result;
    EXPECT_EQ(helper->post(Interface::Upgrade, upgradeBody, result, {}, 5000), NubraCommon::Success);
}

TEST_F(BlockingCalls, recordsSentToTheClient)
{
    const QVariantMap body{{"userID", 1001}, {"sn", "VS1"}, {"token", "t"}};
    const QVariantMap params{{"page", 2}};
    const QVariantMap callerHeaders{{"X-Trace", "abc"}};
    const QVariantMap token{{"X-Auth-Token", "token-of-test"}};
    struct Case {
        Call call;
        Interface iface;
        QVariantMap headers; // postv1 only
        QVariantMap expectedRecord;
        QVariantMap expectedOptions;
    };
    const QVariantMap timeout{{"timeout", 4321}};
    const Case cases[] = {
        // Token marker: headers; no params marker: no "params".
        {Call::Post, Interface::GetUserProfile, {}, {{"headers", token}, {"body", body}}, timeout},
        {Call::PostV2, Interface::GetUserProfile, {}, {{"headers", token}, {"body", body}}, timeout},
        // postv1: the caller's headers instead of the token; none at all when empty.
        {Call::PostV1, Interface::GetUserProfile, callerHeaders, {{"headers", callerHeaders}, {"body", body}}, timeout},
        {Call::PostV1, Interface::GetUserProfile, {}, {{"body", body}}, timeout},
        // Params marker: the caller's params travel.
        {Call::Post, Interface::AuthToken, {}, {{"params", params}, {"body", body}}, timeout},
        {Call::PostV1, Interface::AuthToken, {}, {{"params", params}, {"body", body}}, timeout},
        {Call::PostV2, Interface::AuthToken, {}, {{"params", params}, {"body", body}}, timeout},
        // Neither marker: the body alone.
        {Call::Post, Interface::FetchCountries, {}, {{"body", body}}, timeout},
        // get: its one map is the body, "params" always empty, no options.
        {Call::Get, Interface::GetUserProfile, {}, {{"headers", token}, {"params", QVariantMap()}, {"body", body}}, {}},
        {Call::Get, Interface::AuthToken, {}, {{"params", QVariantMap()}, {"body", body}}, {}},
        {Call::Get, Interface::FetchCountries, {}, {{"params", QVariantMap()}, {"body", body}}, {}},
    };
    service->answerAfter("getUserProfile", 0, {{"status", "success"}});
    service->answerAfter("authToken", 0, {{"status", "success"}});
    service->answerAfter("fetchCountries", 0, {{"status", "success"}});
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(callName(c.call)) + " " + std::to_string(int(c.iface)));
        service->calls.clear();
        const CallOutcome run = runCall(helper, c.call, c.iface, body, 4321, params, c.headers);
        EXPECT_EQ(int(run.code), int(NubraCommon::Success));
        ASSERT_EQ(service->calls.size(), 1);
        EXPECT_EQ(service->calls[0].record, c.expectedRecord);
        EXPECT_EQ(service->calls[0].options, c.expectedOptions);
        EXPECT_TRUE(service->calls[0].extra.isEmpty());
    }
}

// An empty token is sent as it is: the header is present with an empty value.
TEST_F(BlockingCalls, emptyTokenStillSendsTheHeader)
{
    helper->setUserToken(QString());
    service->answerAfter("listFAPackageInstance", 0, {{"status", "success"}});
    QVariantMap result;
    EXPECT_EQ(helper->post(Interface::ListFAPackageInstance, {}, result, {}, 5000), NubraCommon::Success);
    ASSERT_EQ(service->calls.size(), 1);
    const QVariantMap headers = service->calls[0].record.value("headers").toMap();
    ASSERT_TRUE(headers.contains("X-Auth-Token"));
    EXPECT_EQ(headers.value("X-Auth-Token").toString(), QString());

    helper->setAppId("app-42"); // a stored setting only: the record does not change
    helper->setUserToken(QString());
    service->calls.clear();
    helper->post(Interface::ListFAPackageInstance, {}, result, {}, 5000);
    ASSERT_EQ(service->calls.size(), 1);
    EXPECT_EQ(service->calls[0].record, (QVariantMap{{"headers", headers}, {"body", QVariantMap()}}));
}

// The reply carries the interface's value as a dynamic property while the
// call waits.
TEST_F(BlockingCalls, replyCarriesInterfaceProperty)
{
    for (Call call : kAllCalls) {
        SCOPED_TRACE(callName(call));
        const char* property = call == Call::Get ? "getInterface" : "postInterface";
        QVariant seen;
        service->setScript("getDeviceAction", [&](VornTest::ScriptedReply* reply, const ScriptedService::Call&) {
            QTimer::singleShot(0, reply, [&seen, reply, property] {
                seen = reply->property(property);
                reply->sendFinished({{"status", "success"}});
            });
        });
        EXPECT_EQ(int(runCall(helper, call, Interface::GetDeviceAction, {{"sn", "X"}}, 5000).code),
                  int(NubraCommon::Success));
        EXPECT_EQ(seen, QVariant(9));
    }
}

// A reply that answers after the time-out ended the wait leaves the result
// as it was: once after the call returned, and once while the timed-out
// call is still inside its loop because a nested call holds it there.
TEST_F(BlockingCalls, lateReplyAfterTimeoutLeavesResultUntouched)
{
    const QVariantMap late{{"status", "success"}, {"result", QVariantMap{{"late", true}}}};
    for (Call call : kAllCalls) {
        SCOPED_TRACE(callName(call));
        service = std::make_unique<ScriptedService>(helperManager());
        service->answerAfter("fetchCountries", 80, late);
        const CallOutcome run = runCall(helper, call, Interface::FetchCountries, {}, 20);
        EXPECT_EQ(int(run.code), int(NubraCommon::Timeout));
        EXPECT_EQ(run.result.toMap(), kUntouched);
        // Until the late answer came, or the reply that would carry it went.
        const QPointer<VornTest::ScriptedReply> reply = service->calls.last().reply;
        ASSERT_TRUE(VornTest::waitUntil([&] { return !reply || reply->finishedSent > 0; }, 5000));
        EXPECT_EQ(run.result.toMap(), kUntouched);
    }

    // The outer call times out at 30 ms while a nested call (answered at
    // 150 ms) keeps its loop on the stack; its own answer comes at 80 ms,
    // when its loop still exists but no longer runs.
    service = std::make_unique<ScriptedService>(helperManager());
    service->answerAfter("fetchCountries", 80, late);
    service->answerAfter("getDeviceAction", 140, {{"status", "success"}, {"result", QVariantMap{{"inner", 1}}}});
    QVariantMap inner;
    ErrorCode innerCode = NubraCommon::NoManager;
    QTimer::singleShot(5, [&] {
        innerCode = helper->post(Interface::GetDeviceAction, {{"sn", "X"}}, inner, {}, 5000);
    });
    QVariantMap outer = kUntouched;
    EXPECT_EQ(helper->post(Interface::FetchCountries, {}, outer, {}, 30), NubraCommon::Timeout);
    EXPECT_EQ(outer, kUntouched);
    EXPECT_EQ(innerCode, NubraCommon::Success);
    EXPECT_EQ(inner, (QVariantMap{{"inner", 1}}));
}

// A blocking call started from inside another call's wait runs to its end;
// the outer call still gets its own answer, whichever comes first.
TEST_F(BlockingCalls, nestedCallInsideAnotherWait)
{
    struct Case {
        const char* what;
        int outerAnswerMs;
        int innerAnswerMs;
    };
    const Case cases[] = {
        {"inner answers first", 60, 20},
        {"outer answers while inner still waits", 20, 60},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        service = std::make_unique<ScriptedService>(helperManager());
        service->answerAfter("fetchCountries", c.outerAnswerMs,
                             {{"status", "success"}, {"result", QVariantMap{{"who", "outer"}}}});
        service->answerAfter("getDeviceAction", c.innerAnswerMs,
                             {{"status", "failure"}, {"result", QVariantMap{{"who", "inner"}}}});
        QVariantMap inner;
        ErrorCode innerCode = NubraCommon::NoManager;
        QTimer::singleShot(5, [&] {
            innerCode = helper->get(Interface::GetDeviceAction, {{"sn", "X"}}, inner, 5000);
        });
        QVariantMap outer;
        EXPECT_EQ(helper->post(Interface::FetchCountries, {}, outer, {}, 5000), NubraCommon::Success);
        EXPECT_EQ(outer, (QVariantMap{{"who", "outer"}}));
        EXPECT_EQ(innerCode, NubraCommon::ResponseFailed);
        EXPECT_EQ(inner.value("result").toMap(), (QVariantMap{{"who", "inner"}}));
        EXPECT_EQ(service->calls.size(), 2);
    }
}

// The leveled log lines and the debug message of each call.
TEST_F(BlockingCalls, logLines)
{
    struct Case {
        Call call;
        const char* outcome; // "success", "failure", "error"
        QStringList records;
        bool failMessage;
    };
    const Case cases[] = {
        {Call::Post, "success", {"Nubra Post :getDeviceAction", "Nubra Post Success"}, false},
        {Call::PostV1, "success", {"Nubra Post :getDeviceAction", "Nubra Post Success"}, false},
        {Call::PostV2, "success", {"Nubra Post :getDeviceAction", "Nubra Post Success"}, false},
        {Call::Get, "success", {"Nubra Get :getDeviceAction", "Nubra Get Success"}, false},
        {Call::Post, "failure", {"Nubra Post :getDeviceAction"}, true},
        {Call::PostV2, "failure", {"Nubra Post :getDeviceAction"}, true},
        {Call::Get, "failure", {"Nubra Get :getDeviceAction"}, false},
        {Call::Post, "error", {"Nubra Post :getDeviceAction", "Nubra Post ErrorOccurred: 200"}, false},
        {Call::PostV1, "error", {"Nubra Post :getDeviceAction", "Nubra Post ErrorOccurred: 200"}, false},
        {Call::Get, "error", {"Nubra Get :getDeviceAction", "Nubra Get ErrorOccurred: 200"}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(callName(c.call)) + " " + c.outcome);
        service = std::make_unique<ScriptedService>(helperManager());
        if (QString(c.outcome) == "error")
            service->errorAfter("getDeviceAction", 0, Nubra::Error::ConnectionRefused);
        else
            service->answerAfter("getDeviceAction", 0,
                                 {{"status", QString(c.outcome)}, {"result", QVariantMap{{"k", "v"}}}});
        VornTest::GlogCapture glog;
        VornTest::QtMessageCapture qt;
        runCall(helper, c.call, Interface::GetDeviceAction, {{"sn", "X"}}, 5000);
        EXPECT_EQ(glog.texts(), c.records);
        for (const auto& record : glog.records())
            EXPECT_EQ(record.file, "VornNubraHelper");
        const bool failMessage = qt.anyContains("Nubra Post fail.");
        EXPECT_EQ(failMessage, c.failMessage) << qt.messages().join('\n').toStdString();
        if (c.failMessage) {
            EXPECT_TRUE(qt.anyContains("\"status\"")) << "the whole reply map follows the message";
        }
    }
}
