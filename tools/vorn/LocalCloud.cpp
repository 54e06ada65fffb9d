// SPDX-License-Identifier: MIT
#include "LocalCloud.h"

#include <QCoreApplication>
#include <QDir>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>
#include <csignal>
#include <sys/prctl.h>

// QProcess whose child gets SIGTERM when vorn dies, whatever the cause.
// Qt 6 replaced the virtual setupChildProcess by setChildProcessModifier.
class LocalCloud::ChildProcess : public QProcess {
public:
    explicit ChildProcess(QObject* parent = nullptr)
        : QProcess(parent)
    {
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        setChildProcessModifier([] { dieWithParent(); });
#endif
    }

protected:
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    void setupChildProcess() override { dieWithParent(); }
#endif

private:
    static void dieWithParent() { ::prctl(PR_SET_PDEATHSIG, SIGTERM); }
};

LocalCloud::LocalCloud(QObject* parent)
    : QObject(parent)
    , m_dir(QDir::tempPath() + QStringLiteral("/vorn-demo-XXXXXX"))
{
}

LocalCloud::~LocalCloud() { stop(); }

QString LocalCloud::findBinary(const QString& explicitPath)
{
    if (!explicitPath.isEmpty())
        return QFileInfo(explicitPath).isExecutable() ? QFileInfo(explicitPath).absoluteFilePath() : QString();
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/nubra-devcloud");
    if (QFileInfo(beside).isExecutable())
        return beside;
    return QStandardPaths::findExecutable(QStringLiteral("nubra-devcloud"));
}

bool LocalCloud::running() const { return m_process && m_process->state() != QProcess::NotRunning; }

bool LocalCloud::start(const QString& binary, int timeoutMs)
{
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("cannot create a temporary folder: %1").arg(m_dir.errorString());
        return false;
    }
    m_process = new ChildProcess(this);
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    m_process->setStandardInputFile(QProcess::nullDevice());
    m_process->start(binary, {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--write-config"),
                              configPath(), QStringLiteral("--data"), m_dir.path() + QStringLiteral("/data")});
    if (!m_process->waitForStarted(timeoutMs)) {
        m_error = QStringLiteral("cannot start %1: %2").arg(binary, m_process->errorString());
        return false;
    }
    static const QRegularExpression listening(QStringLiteral("listening on (\\S+)"));
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired() && m_process->state() == QProcess::Running) {
        m_process->waitForReadyRead(int(std::clamp<qint64>(deadline.remainingTime(), 1, 200)));
        m_output += QString::fromUtf8(m_process->readAll());
        const auto match = listening.match(m_output);
        if (match.hasMatch() && QFileInfo::exists(configPath())) {
            m_baseUrl = match.captured(1);
            // Keep draining its output so that a chatty cloud never blocks.
            connect(m_process, &QProcess::readyRead, this,
                    [this] { m_output += QString::fromUtf8(m_process->readAll()); });
            return true;
        }
    }
    m_error = m_process->state() == QProcess::Running
        ? QStringLiteral("nubra-devcloud did not report \"listening on\" within %1 ms").arg(timeoutMs)
        : QStringLiteral("nubra-devcloud exited with status %1").arg(m_process->exitCode());
    stop();
    return false;
}

void LocalCloud::stop()
{
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->terminate();
        if (!m_process->waitForFinished(5000)) {
            m_process->kill();
            m_process->waitForFinished(2000);
        }
        m_output += QString::fromUtf8(m_process->readAll());
    }
    m_dir.remove();
}
