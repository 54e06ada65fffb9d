// SPDX-License-Identifier: MIT
// vorn's account, disk, subscribe, upgrade and download commands against a
// real dev cloud. Each group is compiled when vorn has it.

#include "VornProcess.h"

#include <TestFiles.h>

#include <CloudAdmin.h>
#include <DevCloudProcess.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>
#include <QUuid>

#include <gtest/gtest.h>

#include <csignal>

namespace {

// The shared dev cloud's address, from the configuration the fixture wrote.
[[maybe_unused]] QString sharedCloudUrl()
{
    return VornTest::readJsonObject(qEnvironmentVariable("NUBRA_CONFIG")).value("baseUrl").toString();
}

[[maybe_unused]] QString signIn()
{
    const VornRun run = runVorn({"--json", "login", "demo@vorn.example", "--password-stdin", "--no-store",
                                 "--print-token"},
                                {}, 60000, "scan3d!\n");
    return jsonOf(run).value("result").toObject().value("token").toString();
}

} // namespace

#if VORN_CLI_ACCOUNT

TEST(VornAccount, requestsByNameGiveTheirCodes)
{
    struct Case {
        const char* name;
        QStringList args;
        int exitStatus;
    };
    const QList<Case> cases{
        {"captcha", {"account", "Captcha"}, 0},
        {"countries by request name", {"account", "fetchCountries"}, 0},
        {"privacy view with a parameter", {"account", "FactoryPrivacyView", "--param", "lang=de"}, 0},
        {"wrong password", {"account", "UserLogin", "account=demo@vorn.example", "password=wrong"}, 6},
        {"unknown name", {"account", "NoSuchRequest"}, 4},
        {"value outside the catalogue", {"account", "2"}, 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const VornRun run = runVorn(QStringList{"--json"} + c.args);
        EXPECT_EQ(run.exitStatus, c.exitStatus) << describe(run);
        const QJsonObject answer = jsonOf(run);
        EXPECT_EQ(answer.contains("error") ? answer.value("exitStatus").toInt() : answer.value("code").toInt(),
                  c.exitStatus)
            << describe(run);
    }
    const QJsonObject captcha = jsonOf(runVorn({"--json", "account", "Captcha"})).value("result").toObject();
    EXPECT_FALSE(captcha.value("result").toObject().value("image").toString().isEmpty());
}

TEST(VornDisk, spacesNeedTheTokenAndUploadsReportProgress)
{
    const QString token = signIn();
    ASSERT_FALSE(token.isEmpty());

    const VornRun spaces = runVorn({"--json", "disk", "FetchFrontSpace", "--token", token});
    EXPECT_EQ(spaces.exitStatus, 0) << describe(spaces);
    EXPECT_FALSE(jsonOf(spaces).value("result").toObject().value("result").toObject().value("spaces").toArray().isEmpty());
    const VornRun anonymous = runVorn({"disk", "FetchFrontSpace"}, {{"VORN_TOKEN", ""}});
    EXPECT_EQ(anonymous.exitStatus, 6) << describe(anonymous);

    QTemporaryDir dir;
    const QString file = dir.filePath("vorn-upload-test.bin");
    const QByteArray content = QUuid::createUuid().toByteArray().repeated(40000); // unique bytes, about 1.5 MB
    ASSERT_TRUE(VornTest::writeFile(file, content));

    const VornRun upload = runVorn({"--json", "upload", file, "--token", token});
    ASSERT_EQ(upload.exitStatus, 0) << describe(upload);
    const QJsonObject result = jsonOf(upload).value("result").toObject();
    EXPECT_EQ(result.value("uploaded").toInt(), 1) << describe(upload);
    EXPECT_EQ(result.value("bytesTotal").toDouble(), double(content.size()));
    // Not a terminal: plain progress lines on stderr, the last one at 100%.
    EXPECT_TRUE(upload.err.contains("upload 100%")) << describe(upload);
    EXPECT_FALSE(upload.err.contains('\r')) << describe(upload);

    // "-": the bytes come from standard input, under the name --name gives.
    const VornRun piped = runVorn({"--json", "upload", "-", "--name", "piped.bin", "--token", token}, {}, 60000, content);
    ASSERT_EQ(piped.exitStatus, 0) << describe(piped);
    EXPECT_EQ(jsonOf(piped).value("result").toObject().value("bytesTotal").toDouble(), double(content.size()))
        << describe(piped);

    const VornRun missing = runVorn({"upload", dir.filePath("none.bin"), "--token", token});
    EXPECT_EQ(missing.exitStatus, 66) << describe(missing);
}

#endif

#if VORN_CLI_SUBSCRIBE

TEST(VornSubscribe, printsThePublishedMessageAndStopsAtTheCount)
{
    const QString token = signIn();
    ASSERT_FALSE(token.isEmpty());
    const QString topic = QStringLiteral("users/1001/vorn-test/%1/status").arg(QUuid::createUuid().toString(QUuid::Id128));

    QProcess subscriber;
    subscriber.start(vornBinary(), {"--json", "subscribe", topic, "--count", "1", "--seconds", "20", "--settle", "1000",
                                    "--token", token});
    ASSERT_TRUE(subscriber.waitForStarted(10000));

    // Publish until the subscriber has its message: it may still be
    // subscribing when the first one goes out (QoS 0, not kept).
    VornTest::CloudAdmin admin(sharedCloudUrl());
    const QJsonObject payload{{"state", "idle"}, {"n", 7}};
    QDeadlineTimer deadline(20000);
    while (subscriber.state() != QProcess::NotRunning && !deadline.hasExpired()) {
        ASSERT_TRUE(admin.publish(topic, payload));
        subscriber.waitForFinished(500);
    }
    ASSERT_EQ(subscriber.state(), QProcess::NotRunning);
    const QByteArray out = subscriber.readAllStandardOutput();
    EXPECT_EQ(subscriber.exitCode(), 0) << out.toStdString() << subscriber.readAllStandardError().toStdString();
    const QJsonObject answer = QJsonDocument::fromJson(out).object();
    const QJsonArray messages = answer.value("result").toObject().value("messages").toArray();
    ASSERT_EQ(messages.size(), 1) << out.toStdString();
    EXPECT_EQ(messages.at(0).toObject().value("topic").toString(), topic);
    EXPECT_EQ(messages.at(0).toObject().value("data").toObject(), payload);
}

TEST(VornSubscribe, aTokenTheBrokerRefusesIsAFailure)
{
    const VornRun run = runVorn({"--json", "subscribe", "vorn-test/refused", "--seconds", "3", "--token", "not-a-token"});
    EXPECT_EQ(run.exitStatus, 9) << describe(run);
    EXPECT_EQ(jsonOf(run).value("codeName").toString(), "SubscribeFailed") << describe(run);
    // The broker's refusal, as the client saw it, is the cause.
    EXPECT_FALSE(jsonOf(run).value("cause").toObject().value("clientErrorName").toString().isEmpty()) << describe(run);
}

TEST(VornSubscribe, tooFewMessagesExitsWithOneThoughTheSubscriptionWorked)
{
    const QString token = signIn();
    const VornRun run = runVorn({"--json", "subscribe", "vorn-test/silent", "--count", "1", "--seconds", "2",
                                 "--token", token});
    EXPECT_EQ(run.exitStatus, 1) << describe(run);
    EXPECT_EQ(jsonOf(run).value("codeName").toString(), "Success") << describe(run);
    EXPECT_EQ(jsonOf(run).value("received").toInt(-1), 0) << describe(run);
}

#endif

#if VORN_CLI_UPGRADE

TEST(VornUpgrade, checkDownloadAndExistsAgainstTheCatalogue)
{
    QTemporaryDir dir;
    const QStringList registration{"--model", "VS-300 Pro", "--version", "2.0.0", "--dir", dir.path()};

    const VornRun check = runVorn(QStringList{"--json", "upgrade", "check"} + registration);
    ASSERT_EQ(check.exitStatus, 0) << describe(check);
    const QJsonObject info = jsonOf(check).value("result").toObject();
    ASSERT_TRUE(info.value("hasUpgrade").toBool()) << describe(check);
    EXPECT_EQ(info.value("currentVersion").toString(), "2.0.0") << describe(check);
    EXPECT_EQ(info.value("signedBy").toString(), "nubra-devcloud") << describe(check);

    // The newest version (2.1.0), and the key that verified it.
    const VornRun download = runVorn(QStringList{"--json", "upgrade", "download"} + registration);
    ASSERT_EQ(download.exitStatus, 0) << describe(download);
    const QJsonObject result = jsonOf(download).value("result").toObject();
    EXPECT_EQ(result.value("outcome").toString(), "downloadSuccess");
    EXPECT_EQ(result.value("signedBy").toString(), "nubra-devcloud") << describe(download);
    EXPECT_EQ(result.value("bytesReceived").toDouble(), result.value("bytesTotal").toDouble());
    EXPECT_EQ(QFileInfo(dir.filePath("VS-300_Pro-2.1.0.vpkg")).size(), qint64(result.value("bytesTotal").toDouble()));

    // exists answers yes (0) or no (1); the helper's own code stays in the output.
    const VornRun exists = runVorn(QStringList{"--json", "upgrade", "exists", "--to", "2.1.0"} + registration);
    EXPECT_EQ(exists.exitStatus, 0) << describe(exists);
    EXPECT_EQ(jsonOf(exists).value("code").toInt(), 12) << describe(exists);
    QTemporaryDir empty;
    const VornRun absent = runVorn({"--json", "upgrade", "exists", "--to", "2.1.0", "--model", "VS-300 Pro",
                                    "--version", "2.0.0", "--dir", empty.path()});
    EXPECT_EQ(absent.exitStatus, 1) << describe(absent);
    EXPECT_EQ(jsonOf(absent).value("code").toInt(-1), 0) << describe(absent);
    EXPECT_FALSE(jsonOf(absent).value("result").toObject().value("present").toBool(true)) << describe(absent);

    // The cloud's own words and status explain the failure.
    const VornRun unknownModel = runVorn({"upgrade", "check", "--model", "VS-999", "--version", "1.0.0", "--dir", dir.path()});
    EXPECT_NE(unknownModel.exitStatus, 0) << describe(unknownModel);
    EXPECT_TRUE(unknownModel.out.contains("HTTP 404: no software for model VS-999")) << describe(unknownModel);
}

TEST(VornUpgrade, ctrlCPausesTheDownloadAndTheNextRunResumesIt)
{
    // A private cloud: the slowed-down transfer must be this test's own.
    VornTest::DevCloudProcess cloud;
    ASSERT_TRUE(cloud.start()) << cloud.output().toStdString();
    VornTest::CloudAdmin admin(cloud.baseUrl());
    const QString packagePath = "/packages/VS-200-1.2.0.vpkg";
    admin.armFault(packagePath, {{"throttle", 1024 * 1024}, {"times", 1}});
    ASSERT_EQ(admin.lastStatus(), 200);

    QTemporaryDir dir;
    const QStringList args{"--json", "--config", cloud.configPath(), "upgrade", "download", "--model", "VS-200",
                           "--version", "1.1.0", "--dir", dir.path(), "--to", "1.2.0"};
    QProcess first;
    first.setReadChannel(QProcess::StandardError); // waitForReadyRead waits on this channel only
    first.start(vornBinary(), args);
    ASSERT_TRUE(first.waitForStarted(10000));
    // Plain progress lines on stderr: interrupt once a tenth has arrived.
    QString progress;
    QDeadlineTimer deadline(30000);
    while (!progress.contains("VS-200 1.2.0 10%") && !deadline.hasExpired()) {
        ASSERT_TRUE(first.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())))) << progress.toStdString();
        progress += QString::fromUtf8(first.readAllStandardError());
    }
    ASSERT_EQ(::kill(pid_t(first.processId()), SIGINT), 0);
    ASSERT_TRUE(first.waitForFinished(20000));
    const QJsonObject paused = QJsonDocument::fromJson(first.readAllStandardOutput()).object();
    EXPECT_EQ(first.exitCode(), 130);
    EXPECT_EQ(paused.value("result").toObject().value("outcome").toString(), "paused");
    const qint64 pausedBytes = qint64(paused.value("result").toObject().value("bytesReceived").toDouble());
    const qint64 total = qint64(paused.value("result").toObject().value("bytesTotal").toDouble());
    EXPECT_GT(pausedBytes, 0);
    EXPECT_LT(pausedBytes, total);
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("VS-200-1.2.0.vpkg.part")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("VS-200-1.2.0.vpkg")));

    const VornRun second = runVorn(args);
    ASSERT_EQ(second.exitStatus, 0) << describe(second);
    EXPECT_EQ(jsonOf(second).value("result").toObject().value("outcome").toString(), "downloadSuccess");
    EXPECT_EQ(QFileInfo(dir.filePath("VS-200-1.2.0.vpkg")).size(), total);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("VS-200-1.2.0.vpkg.part")));

    // The second run asked only for the rest.
    EXPECT_EQ(admin.stat(packagePath, "rangeRequests"), 1);
    EXPECT_LE(admin.stat(packagePath, "rangeBytesServed"), total - pausedBytes);
}

TEST(VornDownload, fileArrivesOrTheFailureIsReported)
{
    QTemporaryDir dir;
    const QString base = sharedCloudUrl();
    const VornRun good = runVorn({"--json", "download", base + "/files/scanner-manual.pdf", dir.path() + "/"});
    ASSERT_EQ(good.exitStatus, 0) << describe(good);
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("scanner-manual.pdf")));
    EXPECT_EQ(jsonOf(good).value("result").toObject().value("bytes").toInt(), QFileInfo(dir.filePath("scanner-manual.pdf")).size());

    const VornRun missing = runVorn({"download", base + "/files/no-such-file.bin", dir.filePath("x.bin"), "--seconds", "20"});
    EXPECT_EQ(missing.exitStatus, 7) << describe(missing);
    EXPECT_TRUE(missing.out.contains("HttpError (401): HTTP status 404")) << describe(missing);
    EXPECT_TRUE(QDir(dir.path()).entryList({"x.bin*"}).isEmpty()) << "nothing of the failed file is left";
}

#endif
