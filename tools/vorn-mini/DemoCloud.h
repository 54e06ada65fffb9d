#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// nubra-devcloud as a child process on a free loopback port, with a client
// configuration written for it; stopped (SIGTERM) when the object goes.
class DemoCloud {
public:
    ~DemoCloud();
    // Starts the binary and waits for its "listening on" line.
    bool start(const QString& binary, QString* error);
    QString configPath() const { return m_dir.filePath(QStringLiteral("config.json")); }
    QString baseUrl() const { return m_baseUrl; }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    QString m_baseUrl;
};
