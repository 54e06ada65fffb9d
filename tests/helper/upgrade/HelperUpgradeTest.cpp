// SPDX-License-Identifier: MIT
// The helper's upgrade, package download and file download calls against a
// scripted cloud client: records sent, result codes, signals, log lines and
// the exact order of the waits.

#include "GlogCapture.h"
#include "HelperTestAccess.h"
#include "ScriptedService.h"
#include "Waiting.h"

#include <VornNubraHelper.h>

#include <Nubra/Manager.h>

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

namespace {

using Access = VornNubraHelperTestAccess;
using NubraCommon::ErrorCode;
using VornTest::ScriptedReply;
using VornTest::ScriptedService;

const QString kConfig = QStringLiteral("autoUpgrade:setAutoUpgradeConfig");
const QString kCheck = QStringLiteral("autoUpgrade:checkUpgrade");
const QString kStart = QStringLiteral("autoUpgrade:startDownload");
const QString kExist = QStringLiteral("autoUpgrade:isExist");
const QString kFile = QStringLiteral("startDownload");

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }

QVariantMap success(const QVariantMap& result = {})
{
    return {{QStringLiteral("status"), QStringLiteral("success")}, {QStringLiteral("result"), result}};
}

// Runs f on the event loop after ms, from inside whatever wait is running.
void later(int ms, std::function<void()> f) { QTimer::singleShot(ms, Qt::PreciseTimer, qApp, std::move(f)); }

class HelperUpgrade : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(helper(), nullptr);
        scripted = std::make_unique<ScriptedService>(helperManager(), QStringList{kConfig, kCheck, kStart, kExist, kFile});
    }
    void TearDown() override
    {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        scripted.reset();
    }
    std::unique_ptr<ScriptedService> scripted;
    VornTest::GlogCapture log;
};

// One outcome of the shared 15 s wait, applied to every call that uses it.
struct WaitCase {
    const char* label;
    std::function<void(ScriptedService&, const QString& name)> script;
    ErrorCode expected;
};

const std::vector<WaitCase> kWaitCases = {
    {"success", [](ScriptedService& s, const QString& n) { s.answerAfter(n, 5, success()); }, NubraCommon::Success},
    {"status compared case-sensitively",
     [](ScriptedService& s, const QString& n) {
         s.answerAfter(n, 5, {{QStringLiteral("status"), QStringLiteral("Success")}});
     },
     NubraCommon::ResponseFailed},
    {"missing status",
     [](ScriptedService& s, const QString& n) { s.answerAfter(n, 5, {}); }, NubraCommon::ResponseFailed},
    {"error signal", [](ScriptedService& s, const QString& n) { s.errorAfter(n, 5, Nubra::Error::ConnectionClosed); },
     NubraCommon::TransportError},
    {"refused at once", [](ScriptedService& s, const QString& n) { s.setStatus(n, Nubra::Error::NotConfigured); },
     NubraCommon::RequestRejected},
    {"no reply object", [](ScriptedService& s, const QString& n) { s.setNullReply(n); },
     NubraCommon::RequestRejected},
};

TEST_F(HelperUpgrade, waitOutcomesOfConfigureCheckAndExistence)
{
    Access::upgradeConfigured(helper()) = true;
    for (const WaitCase& c : kWaitCases) {
        SCOPED_TRACE(c.label);
        for (const QString& name : {kConfig, kCheck, kExist}) {
            SCOPED_TRACE(name.toStdString());
            ScriptedService service(helperManager(), {name});
            c.script(service, name);
            QVariantMap info{{QStringLiteral("kept"), true}};
            ErrorCode code;
            if (name == kConfig)
                code = helper()->setSoftwareAutoUpgrade("VS-200", "1.0.0", "release", "en", "/tmp/pkgs");
            else if (name == kCheck)
                code = helper()->checkSoftwareUpgrade("VS-200", info);
            else
                code = helper()->checkDownloadSoftwareExist("VS-200", "1.2.0");
            EXPECT_EQ(code, c.expected);
            if (c.expected != NubraCommon::Success) {
                EXPECT_EQ(info, (QVariantMap{{QStringLiteral("kept"), true}}));
            }
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
    }
    EXPECT_TRUE(log.contains(QStringLiteral("Nubra Get ErrorOccurred: 203")));
}

TEST_F(HelperUpgrade, registrationBodyHasThreeEntriesAndFixedConstants)
{
    for (const QString& model : {QStringLiteral("VS-300 Pro"), QString()}) {
        scripted->calls.clear();
        scripted->answerAfter(kConfig, 0, success());
        EXPECT_EQ(helper()->setSoftwareAutoUpgrade(model, "2.0.0", "beta", "de", "/data/packages"),
                  NubraCommon::Success);
        ASSERT_EQ(scripted->calls.size(), 1);
        const auto call = scripted->calls.first();
        EXPECT_EQ(call.name, kConfig);
        EXPECT_TRUE(call.options.isEmpty());
        ASSERT_EQ(call.record.size(), 3);
        EXPECT_EQ(call.record.value("checkInterval"), QVariant(10));
        EXPECT_EQ(call.record.value("path").toString(), "/data/packages");
        ASSERT_TRUE(call.record.contains(model));
        const QVariantMap inner = call.record.value(model).toMap();
        EXPECT_EQ(inner, (QVariantMap{{"modelCode", model},
                                      {"versionType", "beta"},
                                      {"version", "2.0.0"},
                                      {"maxPatch", 10},
                                      {"osType", "mac"},
                                      {"langType", "de"}}));
    }
    EXPECT_TRUE(log.contains(QStringLiteral("Soft Version Config Success")));
    for (const auto& record : log.records())
        EXPECT_EQ(record.file, QStringLiteral("VornNubraHelper"));
}

TEST_F(HelperUpgrade, checkConfiguresOnceThenReplacesInfoWithResultMap)
{
    Access::upgradeConfigured(helper()) = false;
    scripted->answerAfter(kCheck, 0, success({{"hasUpgrade", true}, {"version", "1.2.0"}}));
    QVariantMap info{{"old", 1}};
    EXPECT_EQ(helper()->checkSoftwareUpgrade("VS-200", info), NubraCommon::Success);
    EXPECT_TRUE(Access::upgradeConfigured(helper()));
    EXPECT_EQ(info, (QVariantMap{{"hasUpgrade", true}, {"version", "1.2.0"}}));
    ASSERT_EQ(scripted->callsNamed(kCheck).size(), 1);
    EXPECT_EQ(scripted->callsNamed(kCheck).first().record, (QVariantMap{{"modelCode", "VS-200"}}));
    EXPECT_TRUE(scripted->callsNamed(kCheck).first().options.isEmpty());
    // The configuration step went through the client for real.
    EXPECT_EQ(helper()->configData().value("timeout"), QVariant(3));
    EXPECT_TRUE(log.contains(QStringLiteral("Soft Version Get Success")));

    // A "result" that is not a map gives an empty map, not the old info.
    scripted->answerAfter(kCheck, 0, {{"status", "success"}, {"result", "text"}});
    EXPECT_EQ(helper()->checkSoftwareUpgrade("VS-200", info), NubraCommon::Success);
    EXPECT_TRUE(info.isEmpty());
}

// The configuration step as the client may answer it: refused, answered
// with an error code (the check still runs, and the next check configures
// again), or answered late (the step has no time-out).
TEST_F(HelperUpgrade, configurationStepOutcomes)
{
    ScriptedService client(helperManager(), {QStringLiteral("setConfigData")});
    QVariantMap info;

    Access::upgradeConfigured(helper()) = false;
    client.setStatus(QStringLiteral("setConfigData"), Nubra::Error::ConfigMalformed);
    EXPECT_EQ(helper()->checkSoftwareUpgrade("VS-200", info), NubraCommon::RequestRejected);
    EXPECT_TRUE(log.contains(QStringLiteral("set config  fail%1").arg(int(Nubra::Error::ConfigMalformed))));
    EXPECT_TRUE(scripted->callsNamed(kCheck).isEmpty());
    EXPECT_FALSE(Access::upgradeConfigured(helper()));

    client.setStatus(QStringLiteral("setConfigData"), 0);
    client.answerAfter(QStringLiteral("setConfigData"), 0, {{"status", "failure"}, {"errorCode", 3}});
    scripted->answerAfter(kCheck, 0, success({{"version", "2.0.0"}}));
    EXPECT_EQ(helper()->checkSoftwareUpgrade("VS-200", info), NubraCommon::Success);
    EXPECT_TRUE(log.contains(QStringLiteral("init fail0")));
    EXPECT_FALSE(Access::upgradeConfigured(helper()));
    EXPECT_EQ(info.value("version"), QVariant("2.0.0"));
    EXPECT_EQ(client.callsNamed(QStringLiteral("setConfigData")).last().record, (QVariantMap{{"timeout", 3}}));

    client.answerAfter(QStringLiteral("setConfigData"), 300, {{"status", "success"}, {"errorCode", 0}});
    scripted->answerAfter(kCheck, 0, success({{"version", "2.0.1"}}));
    EXPECT_EQ(helper()->checkSoftwareUpgrade("VS-200", info), NubraCommon::Success);
    EXPECT_TRUE(Access::upgradeConfigured(helper()));
    EXPECT_EQ(info.value("version"), QVariant("2.0.1"));
    EXPECT_EQ(client.callsNamed(QStringLiteral("setConfigData")).size(), 3);
    EXPECT_EQ(scripted->callsNamed(kCheck).size(), 2);
}

TEST_F(HelperUpgrade, lateAnswerAfterTheFifteenSecondTimeoutChangesNothing)
{
    Access::upgradeConfigured(helper()) = true;
    scripted->answerAfter(kCheck, 15300, success({{"version", "9.9.9"}}));
    QVariantMap info{{"kept", true}};
    EXPECT_EQ(helper()->checkSoftwareUpgrade("VS-200", info), NubraCommon::Timeout);
    QPointer<ScriptedReply> reply = scripted->calls.last().reply;
    ASSERT_FALSE(reply.isNull());
    EXPECT_TRUE(reply->signalsBlocked());
    // Until the late answer came, or the reply that would carry it went;
    // either way nothing changes.
    ASSERT_TRUE(VornTest::waitUntil([&] { return !reply || reply->finishedSent > 0; }, 5000));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(reply.isNull());
    EXPECT_EQ(info, (QVariantMap{{"kept", true}}));
}

struct DownloadCase {
    const char* label;
    // Drives the running download; may call pause.
    std::function<void(ScriptedReply*)> script;
    bool expectSuccess;
};

TEST_F(HelperUpgrade, downloadOutcomeSignals)
{
    const std::vector<DownloadCase> cases = {
        {"finished success",
         [](ScriptedReply* r) { later(5, [r] { r->sendFinished(success()); }); }, true},
        {"finished failure",
         [](ScriptedReply* r) { later(5, [r] { r->sendFinished({{"status", "failure"}}); }); }, false},
        {"error does not end the wait",
         [](ScriptedReply* r) {
             later(5, [r] { r->sendError(Nubra::Error::ConnectionClosed); });
             later(40, [r] { r->sendFinished(success()); });
         },
         true},
        {"pause counts as success (flag starts true)",
         [](ScriptedReply*) { later(5, [] { EXPECT_EQ(helper()->pauseDownloadSoftware(), NubraCommon::Success); }); },
         true},
        {"failure before the pause wins",
         [](ScriptedReply* r) {
             QObject::connect(r, qOverload<>(&Nubra::Reply::stop), r,
                              [r] { r->sendFinished({{"status", "paused"}}); });
             later(5, [] { helper()->pauseDownloadSoftware(); });
         },
         false},
    };
    for (const DownloadCase& c : cases) {
        SCOPED_TRACE(c.label);
        ScriptedReply* running = nullptr;
        scripted->setScript(kStart, [&](ScriptedReply* r, const ScriptedService::Call&) {
            running = r;
            c.script(r);
        });
        QSignalSpy succeeded(helper(), &VornNubraHelper::downloadSuccess);
        QSignalSpy failed(helper(), &VornNubraHelper::downloadFail);
        EXPECT_EQ(helper()->startDownloadSoftware("VS-200", "1.2.0"), NubraCommon::Success);
        EXPECT_EQ(succeeded.count(), c.expectSuccess ? 1 : 0);
        EXPECT_EQ(failed.count(), c.expectSuccess ? 0 : 1);
        EXPECT_TRUE(Access::downloadReply(helper()).isNull());
        ASSERT_NE(running, nullptr);
        const auto call = scripted->callsNamed(kStart).last();
        EXPECT_EQ(call.record, (QVariantMap{{"upgrades", QVariantList{QVariantMap{{"modelCode", "VS-200"},
                                                                                  {"version", "1.2.0"}}}}}));
        EXPECT_TRUE(call.options.isEmpty());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    EXPECT_TRUE(log.contains(QStringLiteral("Nubra Get ErrorOccurred: 203")));
}

TEST_F(HelperUpgrade, progressIsLoggedAndForwardedWhileTheDownloadRuns)
{
    QStringList seen;
    scripted->setScript(kStart, [&](ScriptedReply* r, const ScriptedService::Call&) {
        later(5, [r, &seen] {
            seen << r->property("download").toString();
            // Refused while running: a second start and an existence test.
            EXPECT_EQ(helper()->startDownloadSoftware("VS-200", "1.2.0"), NubraCommon::DownloadRunning);
            EXPECT_EQ(helper()->checkDownloadSoftwareExist("VS-200", "1.2.0"), NubraCommon::DownloadRunning);
            r->sendDownloadProgressOfOne("VS-200-1.2.0.vpkg", 10, 100);
            r->sendDownloadProgressOfOne("VS-200-1.2.0.vpkg", 100, 100);
            r->sendFinished(success());
        });
    });
    QSignalSpy progress(helper(), &VornNubraHelper::downloadProgress);
    EXPECT_EQ(helper()->startDownloadSoftware("VS-200", "1.2.0"), NubraCommon::Success);
    EXPECT_EQ(seen, QStringList{"run"});
    ASSERT_EQ(progress.count(), 2);
    EXPECT_EQ(progress.at(0), (QVariantList{qint64(10), qint64(100)}));
    EXPECT_EQ(progress.at(1), (QVariantList{qint64(100), qint64(100)}));
    EXPECT_TRUE(log.contains(QStringLiteral("832result:VS-200-1.2.0.vpkg bytesReceived: 10 bytesTotal: 100")));
    EXPECT_EQ(scripted->callsNamed(kStart).size(), 1);
    EXPECT_TRUE(scripted->callsNamed(kExist).isEmpty());
    // Nothing held after the wait: a pause has nothing to stop.
    EXPECT_EQ(helper()->pauseDownloadSoftware(), NubraCommon::NoDownload);
}

TEST_F(HelperUpgrade, pauseMarksTheReplyStopsItAndEndsTheWait)
{
    QPointer<ScriptedReply> running;
    QString markAfterPause;
    scripted->setScript(kStart, [&](ScriptedReply* r, const ScriptedService::Call&) {
        running = r;
        later(5, [&] {
            EXPECT_EQ(helper()->pauseDownloadSoftware(), NubraCommon::Success);
            markAfterPause = running->property("download").toString();
        });
    });
    EXPECT_EQ(helper()->startDownloadSoftware("VS-200", "1.2.0"), NubraCommon::Success);
    EXPECT_EQ(markAfterPause, "stop");
    ASSERT_FALSE(running.isNull()); // released by deferred deletion, not at once
    EXPECT_EQ(running->stopCalls, 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(running.isNull());
}

TEST_F(HelperUpgrade, refusedStartKeepsTheReplyButDoesNotBlockTheNextStart)
{
    scripted->setStatus(kStart, Nubra::Error::NotConfigured);
    QSignalSpy succeeded(helper(), &VornNubraHelper::downloadSuccess);
    EXPECT_EQ(helper()->startDownloadSoftware("VS-200", "1.2.0"), NubraCommon::RequestRejected);
    ASSERT_FALSE(Access::downloadReply(helper()).isNull());
    EXPECT_FALSE(Access::downloadReply(helper())->property("download").isValid());
    EXPECT_EQ(succeeded.count(), 0);

    scripted->setStatus(kStart, 0);
    scripted->answerAfter(kStart, 0, success());
    EXPECT_EQ(helper()->startDownloadSoftware("VS-200", "1.2.0"), NubraCommon::Success);
    EXPECT_EQ(succeeded.count(), 1);
}

TEST_F(HelperUpgrade, existenceAnswerReadsSizesAsThirtyTwoBitIntegers)
{
    struct Case {
        QVariant received;
        QVariant total;
        ErrorCode code;
        qint64 emittedReceived;
        qint64 emittedTotal;
    };
    const qint64 big = 3000000000LL; // above 2^31 - 1: wraps in 32 bits
    const qint64 wrapped = big - (qint64(1) << 32);
    const std::vector<Case> cases = {
        {qint64(0), qint64(5000), NubraCommon::Success, 0, 5000},
        {qint64(1), qint64(5000), NubraCommon::PackageExists, 1, 5000},
        {qint64(5000), qint64(5000), NubraCommon::PackageExists, 5000, 5000},
        {big, big, NubraCommon::Success, wrapped, wrapped},
        {QVariant(), QVariant(), NubraCommon::Success, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.received.toString().toStdString());
        QVariantMap result;
        if (c.received.isValid())
            result = {{"bytesReceived", c.received}, {"bytesTotal", c.total}};
        scripted->answerAfter(kExist, 0, success(result));
        QSignalSpy progress(helper(), &VornNubraHelper::downloadProgress);
        EXPECT_EQ(helper()->checkDownloadSoftwareExist("VS-200", "1.2.0"), c.code);
        ASSERT_EQ(progress.count(), 1);
        EXPECT_EQ(progress.at(0), (QVariantList{c.emittedReceived, c.emittedTotal}));
        EXPECT_EQ(scripted->calls.last().record, (QVariantMap{{"modelCode", "VS-200"}, {"version", "1.2.0"}}));
    }
}

TEST_F(HelperUpgrade, fileDownloadReturnsAtOnceAndReleasesTheReplyOnALaterTurn)
{
    for (const QString& status : {QStringLiteral("success"), QStringLiteral("failure")}) {
        SCOPED_TRACE(status.toStdString());
        scripted->calls.clear();
        EXPECT_EQ(helper()->downloadFile("http://127.0.0.1:1/files/a.bin", "/tmp/a.bin"), NubraCommon::Success);
        EXPECT_EQ(helper()->downloadFile("http://127.0.0.1:1/files/b.bin", "/tmp/b.bin"), NubraCommon::Success);
        ASSERT_EQ(scripted->calls.size(), 2);
        EXPECT_EQ(scripted->calls.at(0).record,
                  (QVariantMap{{"urls", "http://127.0.0.1:1/files/a.bin"}, {"path", "/tmp/a.bin"}}));
        EXPECT_TRUE(Access::downloadReply(helper()).isNull()); // no shared state with the package download
        QPointer<ScriptedReply> first = scripted->calls.at(0).reply;
        QPointer<ScriptedReply> second = scripted->calls.at(1).reply;
        first->sendDownloadProgressOfOne("http://127.0.0.1:1/files/a.bin", 1, 2);
        first->sendError(Nubra::Error::HttpError);
        first->sendFinished({{"status", status}});
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_FALSE(first.isNull()); // the timer has not fired yet
        EXPECT_TRUE(VornTest::waitUntil([&] { return first.isNull(); }, 2000));
        EXPECT_FALSE(second.isNull()); // still running, untouched
    }
    EXPECT_TRUE(log.contains(
        QStringLiteral("1140result:http://127.0.0.1:1/files/a.bin bytesReceived: 1 bytesTotal: 2")));
    EXPECT_TRUE(log.contains(QStringLiteral("Nubra Get ErrorOccurred: 401")));

    scripted->setStatus(kFile, Nubra::Error::InvalidArgument);
    EXPECT_EQ(helper()->downloadFile("not a url", "/tmp/x"), NubraCommon::RequestRejected);
}

} // namespace
