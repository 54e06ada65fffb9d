// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// A private nubra-devcloud for the demo: on a free loopback port, with its
// data and client configuration in a temporary folder that goes away with
// it. The child is asked to die with vorn (PR_SET_PDEATHSIG), so even a
// vorn that is killed outright leaves no cloud running.
class LocalCloud : public QObject {
    Q_OBJECT
public:
    explicit LocalCloud(QObject* parent = nullptr);
    ~LocalCloud() override;

    // Finds the binary: explicitPath, else nubra-devcloud beside vorn, else
    // on PATH. Empty when there is none.
    static QString findBinary(const QString& explicitPath);

    // Starts the cloud and waits (at most timeoutMs) for its "listening on"
    // line. On failure, error() says why.
    bool start(const QString& binary, int timeoutMs = 15000);
    // Stops it (SIGTERM, then SIGKILL after 5 s) and removes its folder.
    void stop();

    bool running() const;
    QString baseUrl() const { return m_baseUrl; }
    QString configPath() const { return m_dir.path() + QStringLiteral("/config.json"); }
    QString workPath() const { return m_dir.path(); }
    QString error() const { return m_error; }
    // What the cloud printed (for failures).
    QString output() const { return m_output; }

private:
    class ChildProcess;

    QTemporaryDir m_dir;
    ChildProcess* m_process = nullptr;
    QString m_baseUrl;
    QString m_error;
    QString m_output;
};
