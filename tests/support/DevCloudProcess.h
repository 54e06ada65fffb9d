#pragma once

// Starts a private nubra-devcloud on a free loopback port for one test
// (for tests that must stop, restart or fault the cloud on their own). Tests
// that only talk to the cloud use the ctest fixture instead (NUBRA_CONFIG).

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace VornTest {

class DevCloudProcess {
public:
    // extraArgs are passed to nubra-devcloud.
    explicit DevCloudProcess(QStringList extraArgs = {});
    ~DevCloudProcess();

    // Starts and waits (at most timeoutMs) for the "listening on" line.
    bool start(int timeoutMs = 15000);
    // Sends SIGTERM and waits at most graceMs for the cloud to end (then
    // kills it). True when it ended by itself with exit code 0.
    bool stop(int graceMs = 10000);

    QString baseUrl() const { return m_baseUrl; }
    QString configPath() const { return m_dir.path() + QStringLiteral("/config.json"); }
    QString dataDir() const { return m_dir.path() + QStringLiteral("/data"); }
    QString output() const { return m_output; }

    // Path of the nubra-devcloud binary of this build.
    static QString binary();

private:
    QStringList m_args;
    QTemporaryDir m_dir;
    QProcess m_process;
    QString m_baseUrl;
    QString m_output;
};

} // namespace VornTest
