// SPDX-License-Identifier: MIT
// Killed with SIGKILL, the dev cloud cannot clean up after itself: its
// watcher stops the broker and removes the temporary folders.

#include <CloudAdmin.h>
#include <DevCloudProcess.h>
#include <TestFiles.h>
#include <Waiting.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <csignal>

namespace {

// Gone, or a zombie left to a parent that does not reap (it holds nothing).
bool processGone(qint64 pid)
{
    if (kill(pid_t(pid), 0) != 0)
        return true;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    const QByteArray text = stat.readAll();
    return text.mid(text.lastIndexOf(')') + 2, 1) == "Z";
}

} // namespace

TEST(CleanDeath, aKilledCloudLeavesNoBrokerAndNoTemporaryFiles)
{
    // Every temporary folder there is: the data, the API's and the broker's
    // certificates, the broker's files.
    VornTest::DevCloudProcess cloud({"--tls", "--broker-tls"}, VornTest::DevCloudProcess::DataFolder::Temporary);
    ASSERT_TRUE(cloud.start()) << cloud.output().toStdString();
    const QJsonObject config = VornTest::readJsonObject(cloud.configPath());
    const QJsonObject mqtt = config.value("mqtt").toObject();
    const QStringList folders{config.value("devcloud").toObject().value("dataDir").toString(),
                              QFileInfo(config.value("caFile").toString()).path(),
                              QFileInfo(mqtt.value("devcloud").toObject().value("brokerLog").toString()).path()};
    for (const QString& folder : folders)
        ASSERT_TRUE(QFileInfo(folder).isDir()) << folder.toStdString();
    VornTest::CloudAdmin admin(cloud.baseUrl(), cloud.caFile());
    const QJsonObject broker = admin.call("GET", "/devcloud/broker");
    const qint64 brokerPid = qint64(broker["result"]["pid"].toDouble());
    ASSERT_GT(brokerPid, 0);
    ASSERT_FALSE(processGone(brokerPid));

    QElapsedTimer clock;
    clock.start();
    cloud.kill();
    auto allGone = [&] {
        for (const QString& folder : folders)
            if (QFileInfo::exists(folder))
                return false;
        return processGone(brokerPid);
    };
    // Expected within 2 s; the bound is generous for a loaded machine.
    EXPECT_TRUE(VornTest::waitUntil(allGone, 15000));
    std::printf("broker and folders gone %lld ms after SIGKILL\n", static_cast<long long>(clock.elapsed()));
    for (const QString& folder : folders)
        EXPECT_FALSE(QFileInfo::exists(folder)) << folder.toStdString();

    QTcpSocket probe;
    probe.connectToHost(mqtt.value("host").toString(), quint16(mqtt.value("port").toInt()));
    EXPECT_FALSE(probe.waitForConnected(2000)) << "nothing listens on the broker's port any more";
}
