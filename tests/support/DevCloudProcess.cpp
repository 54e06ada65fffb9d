// SPDX-License-Identifier: MIT
#include "DevCloudProcess.h"

#include "TestFiles.h"

#include <QDeadlineTimer>
#include <QRegularExpression>

namespace VornTest {

QString DevCloudProcess::binary() { return QStringLiteral(VORN_DEVCLOUD_BINARY); }

DevCloudProcess::DevCloudProcess(QStringList extraArgs, DataFolder data)
    : m_args(std::move(extraArgs))
    , m_data(data)
{
}

DevCloudProcess::~DevCloudProcess() { stop(); }

bool DevCloudProcess::start(int timeoutMs)
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    QStringList args{QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--write-config"), configPath()};
    if (m_data == DataFolder::Kept)
        args << QStringLiteral("--data") << dataDir();
    args << m_args;
    if (tlsRequested() && !args.contains(QStringLiteral("--tls")))
        args << QStringLiteral("--tls");
    m_process.start(binary(), args);
    if (!m_process.waitForStarted(timeoutMs))
        return false;
    static const QRegularExpression listening(QStringLiteral("listening on (\\S+)"));
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        if (!m_process.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime()))))
            break;
        m_output += QString::fromUtf8(m_process.readAll());
        const auto match = listening.match(m_output);
        if (match.hasMatch()) {
            m_baseUrl = match.captured(1);
            return true;
        }
    }
    return false;
}

void DevCloudProcess::kill()
{
    m_process.kill();
    m_process.waitForFinished(5000);
}

bool DevCloudProcess::tlsRequested() { return qgetenv("VORN_TEST_DEVCLOUD_TLS") == "1"; }

QString DevCloudProcess::caFile() const { return readJsonObject(configPath()).value(QStringLiteral("caFile")).toString(); }

bool DevCloudProcess::stop(int graceMs)
{
    if (m_process.state() == QProcess::NotRunning)
        return false;
    m_process.terminate();
    bool ended = m_process.waitForFinished(graceMs);
    if (!ended) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    m_output += QString::fromUtf8(m_process.readAll());
    return ended && m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
}

} // namespace VornTest
