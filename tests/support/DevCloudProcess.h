// SPDX-License-Identifier: MIT
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
    // extraArgs are passed to nubra-devcloud; so is --tls when the
    // environment variable VORN_TEST_DEVCLOUD_TLS is 1 (the suites run over
    // HTTPS by scripts/test and the *_tls tests).
    // With DataFolder::Temporary the cloud makes (and removes) its own.
    enum class DataFolder { Kept, Temporary };
    explicit DevCloudProcess(QStringList extraArgs = {}, DataFolder data = DataFolder::Kept);
    ~DevCloudProcess();

    // Starts and waits (at most timeoutMs) for the "listening on" line.
    bool start(int timeoutMs = 15000);
    // SIGKILL: the cloud gets no chance to clean up.
    void kill();
    qint64 processId() const { return m_process.processId(); }
    // Sends SIGTERM and waits at most graceMs for the cloud to end (then
    // kills it). True when it ended by itself with exit code 0.
    bool stop(int graceMs = 10000);

    QString baseUrl() const { return m_baseUrl; }
    QString configPath() const { return m_dir.path() + QStringLiteral("/config.json"); }
    QString dataDir() const { return m_dir.path() + QStringLiteral("/data"); }
    QString output() const { return m_output; }
    // The certificate authority to trust when it serves HTTPS, else empty.
    QString caFile() const;
    // Whether the tests are asked to run against a dev cloud serving HTTPS.
    static bool tlsRequested();

    // Path of the nubra-devcloud binary of this build.
    static QString binary();

private:
    QStringList m_args;
    DataFolder m_data;
    QTemporaryDir m_dir;
    QProcess m_process;
    QString m_baseUrl;
    QString m_output;
};

} // namespace VornTest
