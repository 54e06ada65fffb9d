// SPDX-License-Identifier: MIT
// Stopping the dev cloud: SIGTERM ends it at once and cleanly, also while
// clients keep connections open or wait for answers the cloud was told to
// hold back. (A kept-alive connection used to hold the shutdown for the
// server's 5 s keep-alive time-out, an injected delay for the whole delay.)

#include <DevCloudProcess.h>
#include <Waiting.h>

#include <Nubra/Error.h>
#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <gtest/gtest.h>

namespace {

const char* const kDemoDevice = "VS2024000123";

// Far below the minute the delayed request asks for, and the 5 s of a
// kept-alive connection, far above a clean stop.
constexpr int kStopGraceMs = 4000;

TEST(DevCloudStop, sigtermEndsKeptAliveAndDelayedConnections)
{
    VornTest::DevCloudProcess cloud;
    ASSERT_TRUE(cloud.start()) << cloud.output().toStdString();
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::loadConfig(manager, cloud.configPath()));

    // A finished call leaves its connection open in the client's pool.
    const QVariantMap device{{"sn", kDemoDevice}};
    const QVariantMap first = VornTest::finishOf(manager.request("getDeviceAction", {{"body", device}}, {}));
    ASSERT_EQ(first.value("status").toString(), "success");

    // The next one waits on that connection for an answer that the cloud
    // holds back for a minute.
    Nubra::Reply* delayed =
        manager.request("getDeviceAction", {{"headers", QVariantMap{{"X-Devcloud-Fault", "delay=60000"}}}, {"body", device}},
                        {{"timeout", 120}});
    ASSERT_EQ(delayed->status(), 0);
    int finished = 0;
    QVariantMap delayedAnswer;
    Nubra::Error::ErrorCode error = Nubra::Error::NoError;
    QObject::connect(delayed, &Nubra::Reply::errorOccurred, [&](Nubra::Error::ErrorCode code) { error = code; });
    QObject::connect(delayed, &Nubra::Reply::finished, [&](const QVariantMap& answer) {
        ++finished;
        delayedAnswer = answer;
    });
    // Give the request time to reach the cloud's handler.
    VornTest::waitUntil([] { return false; }, 300);
    ASSERT_EQ(finished, 0);

    // Meanwhile a call on a second connection, which then stays open, idle.
    const QVariantMap second = VornTest::finishOf(manager.request("getDeviceAction", {{"body", device}}, {}));
    ASSERT_EQ(second.value("status").toString(), "success");

    EXPECT_TRUE(cloud.stop(kStopGraceMs)) << "the cloud did not end by itself within " << kStopGraceMs << " ms\n"
                                          << cloud.output().toStdString();
    EXPECT_TRUE(cloud.output().contains("nubra-devcloud stopped")) << cloud.output().toStdString();

    // The waiting client hears at once that the connection went away.
    EXPECT_TRUE(VornTest::waitUntil([&] { return finished > 0; }, kStopGraceMs));
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(delayedAnswer.value("status").toString(), "failure");
    EXPECT_NE(error, Nubra::Error::NoError);
    EXPECT_NE(error, Nubra::Error::TimedOut);
    delayed->deleteLater();
}

} // namespace
