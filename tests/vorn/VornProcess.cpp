// SPDX-License-Identifier: MIT
#include "VornProcess.h"

#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

QString vornBinary() { return QStringLiteral(VORN_CLI_BINARY); }

QString isolatedConfigHome()
{
    static QTemporaryDir folder;
    return folder.path();
}

VornRun runVorn(const QStringList& args, const QMap<QString, QString>& env, int timeoutMs, const QByteArray& input)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), isolatedConfigHome());
    environment.remove(QStringLiteral("VORN_PASSWORD"));
    for (auto it = env.cbegin(); it != env.cend(); ++it) {
        if (it.value().isEmpty())
            environment.remove(it.key());
        else
            environment.insert(it.key(), it.value());
    }
    process.setProcessEnvironment(environment);
    process.start(vornBinary(), args);
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    VornRun run;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(5000);
        run.crashed = true;
    }
    run.crashed = run.crashed || process.exitStatus() != QProcess::NormalExit;
    run.exitStatus = process.exitCode();
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

QJsonObject jsonOf(const VornRun& run) { return QJsonDocument::fromJson(run.out.toUtf8()).object(); }

std::string describe(const VornRun& run)
{
    return QStringLiteral("exit %1\n--- stdout\n%2--- stderr\n%3").arg(run.exitStatus).arg(run.out, run.err).toStdString();
}
