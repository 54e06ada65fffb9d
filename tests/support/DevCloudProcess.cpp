#include "DevCloudProcess.h"

#include <QDeadlineTimer>
#include <QRegularExpression>

namespace VornTest {

QString DevCloudProcess::binary() { return QStringLiteral(VORN_DEVCLOUD_BINARY); }

DevCloudProcess::DevCloudProcess(QStringList extraArgs)
    : m_args(std::move(extraArgs))
{
}

DevCloudProcess::~DevCloudProcess() { stop(); }

bool DevCloudProcess::start(int timeoutMs)
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    QStringList args{QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--write-config"), configPath(),
                     QStringLiteral("--data"), dataDir()};
    args << m_args;
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

void DevCloudProcess::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(10000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    m_output += QString::fromUtf8(m_process.readAll());
}

} // namespace VornTest
