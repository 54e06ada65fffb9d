// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include <sys/types.h>

namespace devcloud {

// One account of the broker: its user name (its own password) and the topic
// filters it may subscribe and publish to.
struct BrokerAccount {
    QString username;
    QStringList topics;
};

// A real mosquitto broker run as a child process on a loopback port, with a
// generated configuration: TCP_NODELAY on, no anonymous clients, no
// connection messages in its log (they name the user, and a user name is a
// token), a password file holding the dev cloud's publisher account and the
// accounts given, and a permission file (acl_file): the publisher may use
// every topic, an account only its own. Thread-safe.
class Broker {
public:
    // With tls, the broker listens with TLS only, using a certificate for
    // 127.0.0.1 generated at the first start (LoopbackCertificates).
    explicit Broker(bool tls = false);
    ~Broker(); // stops the broker and removes its files

    // Starts on a free port (the first time) or on the port used before.
    bool start(QString* error);
    // SIGTERM, then reaps the process (SIGKILL after 5 s).
    void stop();
    bool isRunning() const;
    // The broker's process id, -1 when it is not running.
    pid_t pid() const;

    // Rewrites the password and permission files for these accounts and,
    // when the broker runs, has it reload them (SIGHUP); returns after the
    // broker reported the reload.
    bool setAccounts(const std::vector<BrokerAccount>& accounts, QString* error);

    int port() const { return m_port; }
    QString host() const { return QStringLiteral("127.0.0.1"); }
    QString publisherUsername() const { return QStringLiteral("devcloud-publisher"); }
    QString publisherPassword() const { return m_publisherPassword; }
    bool tls() const { return m_tls; }
    // The certificate authority (PEM) that signed the broker's certificate,
    // which clients trust; empty without TLS.
    QString certificatePath() const;
    // Where the broker's own log goes.
    QString logPath() const;

private:
    bool writePasswordFile(const std::vector<BrokerAccount>& accounts, QString* error);
    bool writeAclFile(const std::vector<BrokerAccount>& accounts, QString* error);
    // Hands a staged file to the broker's user and moves it into place.
    bool install(const QString& staging, const QString& name, QString* error);
    bool writeConfigFile(QString* error);
    bool writeCertificate(QString* error);
    bool launch(QString* error);
    void readOutput(int fd);
    // Waits until the broker's log holds more than `count` lines matching a
    // marker; false on time-out or exit.
    bool waitForLogCount(int* counter, int count, int timeoutMs);

    mutable std::mutex m_mutex; // guards the process and the files
    std::mutex m_logMutex;
    std::condition_variable m_logChanged;
    QString m_dir;
    bool m_tls = false;
    QString m_publisherPassword;
    int m_port = 0;
    pid_t m_pid = -1;
    std::thread m_reader;
    int m_runningLines = 0;
    int m_reloadLines = 0;
    bool m_readerDone = true;
    uid_t m_brokerUid = uid_t(-1);
    gid_t m_brokerGid = gid_t(-1);
};

} // namespace devcloud
