// Ctrl-C during vorn demo stops its cloud and removes its files.

#include "VornProcess.h"

#include <QDeadlineTimer>
#include <QDir>
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
