// SPDX-License-Identifier: MIT
// vorn demo as a script sees it: a JSON summary whose skipped steps are
// exactly the ones this build lacks, and Ctrl-C that stops its cloud and
// removes its files.

#include "VornProcess.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QUrl>

#include <gtest/gtest.h>

#include <csignal>

TEST(VornDemo, interruptStopsTheLocalCloudAndRemovesItsFiles)
{
    QProcess demo;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove("NUBRA_CONFIG");
    demo.setProcessEnvironment(environment);
    demo.start(vornBinary(), {"demo"});
    ASSERT_TRUE(demo.waitForStarted(10000));

    // Wait until the cloud is up and the first library step has begun.
    QString output;
    static const QRegularExpression started(QStringLiteral("-> (http://\\S+) \\(configuration (\\S+)/config.json\\)"));
    QRegularExpressionMatch match;
    QDeadlineTimer deadline(30000);
    while (!deadline.hasExpired() && !(match = started.match(output)).hasMatch()) {
        ASSERT_TRUE(demo.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())))) << output.toStdString();
        output += QString::fromUtf8(demo.readAllStandardOutput());
    }
    ASSERT_TRUE(match.hasMatch()) << output.toStdString();
    const QUrl cloud(match.captured(1));
    const QString folder = match.captured(2);
    ASSERT_TRUE(QDir(folder).exists());

    ASSERT_EQ(::kill(pid_t(demo.processId()), SIGINT), 0);
    ASSERT_TRUE(demo.waitForFinished(20000));
    output += QString::fromUtf8(demo.readAllStandardOutput());

    EXPECT_EQ(demo.exitStatus(), QProcess::NormalExit) << output.toStdString();
    EXPECT_EQ(demo.exitCode(), 130) << output.toStdString();
    EXPECT_TRUE(output.contains("cleaned up")) << output.toStdString();
    EXPECT_FALSE(QDir(folder).exists()) << folder.toStdString();

    // Nothing listens on the cloud's port any more.
    QTcpSocket probe;
    probe.connectToHost(cloud.host(), quint16(cloud.port()));
    EXPECT_FALSE(probe.waitForConnected(2000)) << "the local cloud still answers on " << cloud.toString().toStdString();
}

TEST(VornDemo, jsonSummarySkipsExactlyWhatThisBuildLacks)
{
    const VornRun run = runVorn({"--json", "demo"}, {{"NUBRA_CONFIG", ""}}, 180000);
    ASSERT_FALSE(run.crashed) << run.err.toStdString();
    QJsonParseError error{};
    const QJsonObject summary = QJsonDocument::fromJson(run.out.toUtf8(), &error).object();
    ASSERT_EQ(error.error, QJsonParseError::NoError) << run.out.toStdString();
    EXPECT_EQ(run.exitStatus, 0) << run.err.toStdString();
    EXPECT_EQ(summary.value("exitStatus").toInt(-1), run.exitStatus);
    EXPECT_EQ(summary.value("failed").toInt(-1), 0) << run.err.toStdString();

    // Steps per command group: account/disk 3, upgrade 3, subscribe 1, protect 1.
    const int missing = (VORN_CLI_ACCOUNT ? 0 : 3) + (VORN_CLI_UPGRADE ? 0 : 3) + (VORN_CLI_SUBSCRIBE ? 0 : 1)
        + (VORN_CLI_PROTECT ? 0 : 1);
    const QJsonArray steps = summary.value("steps").toArray();
    int skipped = 0;
    for (const QJsonValue& step : steps)
        skipped += step.toObject().value("outcome").toString() == "skipped" ? 1 : 0;
    EXPECT_EQ(skipped, missing);
    EXPECT_EQ(summary.value("skipped").toInt(-1), missing);
    EXPECT_EQ(summary.value("passed").toInt(-1), steps.size() - missing);
    // The narration went to stderr, leaving stdout to the JSON.
    EXPECT_TRUE(run.err.contains("[ 1/")) << run.err.toStdString();
}
