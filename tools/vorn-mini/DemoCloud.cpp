#include "DemoCloud.h"

#include <QDeadlineTimer>
#include <QRegularExpression>

DemoCloud::~DemoCloud()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(10000))
        m_process.kill();
}

bool DemoCloud::start(const QString& binary, QString* error)
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(binary, {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--write-config"),
                             configPath(), QStringLiteral("--data"), m_dir.filePath(QStringLiteral("data"))});
    if (!m_process.waitForStarted(10000)) {
        *error = QStringLiteral("cannot start %1: %2").arg(binary, m_process.errorString());
        return false;
    }
    static const QRegularExpression listening(QStringLiteral("listening on (\\S+)"));
    QString output;
    const QDeadlineTimer deadline(15000);
    while (!deadline.hasExpired() && m_process.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())))) {
        output += QString::fromUtf8(m_process.readAll());
        const auto match = listening.match(output);
        if (match.hasMatch()) {
            m_baseUrl = match.captured(1);
            return true;
        }
    }
    *error = QStringLiteral("nubra-devcloud did not start: %1").arg(output.trimmed());
    return false;
}
