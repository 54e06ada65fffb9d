// SPDX-License-Identifier: MIT
#include "Broker.h"

#include "ChildProcess.h"
#include "CleanupWatcher.h"
#include "LoopbackCertificates.h"

#include <QByteArray>
#include <QFile>
#include <QRandomGenerator>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace devcloud {

namespace {

// A free loopback port, found by binding port 0. The port is released
// again before mosquitto binds it; launch() retries on a lost race.
int pickFreePort()
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return 0;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0
        && getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    close(fd);
    return port;
}

QString randomHex(int bytes)
{
    QByteArray data(bytes, Qt::Uninitialized);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(data.data()), bytes / 4);
    return QString::fromLatin1(data.toHex());
}

} // namespace

Broker::Broker(bool tls)
    : m_tls(tls)
{
    char pattern[] = "/tmp/nubra-broker-XXXXXX";
    if (const char* dir = mkdtemp(pattern)) {
        m_dir = QString::fromLocal8Bit(dir);
        CleanupWatcher::removeIfAbandoned(m_dir);
    }
    m_publisherPassword = randomHex(16);
    // Started as root, mosquitto drops to the "mosquitto" user: its files
    // must belong to that user.
    if (geteuid() == 0) {
        if (const passwd* user = getpwnam("mosquitto")) {
            m_brokerUid = user->pw_uid;
            m_brokerGid = user->pw_gid;
            if (!m_dir.isEmpty() && chown(m_dir.toLocal8Bit().constData(), m_brokerUid, m_brokerGid) != 0)
                std::perror("nubra-devcloud: chown broker folder");
        }
    }
}

Broker::~Broker()
{
    stop();
    if (!m_dir.isEmpty()) {
        for (const char* name :
             {"/passwd", "/passwd.new", "/acl", "/acl.new", "/mosquitto.conf", "/mosquitto.conf.new", "/mosquitto.log", "/ca.pem", "/cert.pem", "/key.pem"})
            QFile::remove(m_dir + QLatin1String(name));
        rmdir(m_dir.toLocal8Bit().constData());
    }
}

QString Broker::certificatePath() const
{
    return m_tls ? m_dir + QStringLiteral("/ca.pem") : QString();
}

QString Broker::logPath() const { return m_dir + QStringLiteral("/mosquitto.log"); }

bool Broker::isRunning() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pid > 0;
}

pid_t Broker::pid() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pid;
}

namespace {

// An account's user name is written as a line of the password file
// ("name:password") and of the permission file ("user name").
bool usableName(const QString& name)
{
    return !name.isEmpty() && !name.contains(QLatin1Char(':')) && !name.contains(QLatin1Char('\n'))
        && !name.contains(QLatin1Char(' ')) && !name.contains(QLatin1Char('\r'));
}

} // namespace

bool Broker::install(const QString& staging, const QString& name, QString* error)
{
    if (m_brokerUid != uid_t(-1) && chown(staging.toLocal8Bit().constData(), m_brokerUid, m_brokerGid) != 0) {
        *error = QStringLiteral("cannot hand %1 to the broker's user").arg(staging);
        return false;
    }
    if (std::rename(staging.toLocal8Bit().constData(), (m_dir + QLatin1Char('/') + name).toLocal8Bit().constData())
        != 0) {
        *error = QStringLiteral("cannot replace the broker's file %1").arg(name);
        return false;
    }
    return true;
}

bool Broker::writePasswordFile(const std::vector<BrokerAccount>& accounts, QString* error)
{
    if (m_dir.isEmpty()) {
        *error = QStringLiteral("no folder for the broker's files");
        return false;
    }
    const QString staging = m_dir + QStringLiteral("/passwd.new");
    {
        QFile file(staging);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            *error = QStringLiteral("cannot write %1: %2").arg(staging, file.errorString());
            return false;
        }
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        file.write(publisherUsername().toUtf8() + ':' + m_publisherPassword.toUtf8() + '\n');
        for (const BrokerAccount& account : accounts)
            if (usableName(account.username))
                file.write(account.username.toUtf8() + ':' + account.username.toUtf8() + '\n');
    }
    // mosquitto_passwd replaces every clear-text password by its hash.
    if (!runToCompletion({"mosquitto_passwd", "-U", staging.toLocal8Bit()}, error))
        return false;
    return install(staging, QStringLiteral("passwd"), error);
}

bool Broker::writeAclFile(const std::vector<BrokerAccount>& accounts, QString* error)
{
    const QString staging = m_dir + QStringLiteral("/acl.new");
    {
        QFile file(staging);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            *error = QStringLiteral("cannot write %1: %2").arg(staging, file.errorString());
            return false;
        }
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        // With an acl_file, whatever is not granted is refused.
        QByteArray text = "# Generated by nubra-devcloud.\nuser " + publisherUsername().toUtf8() + "\ntopic readwrite #\n";
        for (const BrokerAccount& account : accounts) {
            if (!usableName(account.username))
                continue;
            text += "\nuser " + account.username.toUtf8() + '\n';
            for (const QString& topic : account.topics)
                text += "topic readwrite " + topic.toUtf8() + '\n';
        }
        file.write(text);
    }
    return install(staging, QStringLiteral("acl"), error);
}

bool Broker::writeCertificate(QString* error)
{
    LoopbackCertificates files;
    if (!files.generate(m_dir, error))
        return false;
    if (m_brokerUid != uid_t(-1)
        && (chown(files.keyFile.toLocal8Bit().constData(), m_brokerUid, m_brokerGid) != 0
            || chown(files.certFile.toLocal8Bit().constData(), m_brokerUid, m_brokerGid) != 0)) {
        *error = QStringLiteral("cannot hand the broker's key and certificate to the broker's user");
        return false;
    }
    return true;
}

bool Broker::writeConfigFile(QString* error)
{
    const QString path = m_dir + QStringLiteral("/mosquitto.conf.new");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return false;
    }
    file.write(QStringLiteral("# Generated by nubra-devcloud.\n"
                              "listener %1 127.0.0.1\n"
                              "set_tcp_nodelay true\n"
                              "allow_anonymous false\n"
                              "password_file %2/passwd\n"
                              "acl_file %2/acl\n"
                              "persistence false\n"
                              "connection_messages false\n"
                              "log_dest stderr\n"
                              "log_type error\nlog_type warning\nlog_type notice\nlog_type information\n")
                   .arg(m_port)
                   .arg(m_dir)
                   .toUtf8());
    if (m_tls)
        file.write(QStringLiteral("certfile %1/cert.pem\nkeyfile %1/key.pem\n").arg(m_dir).toUtf8());
    file.close();
    // The broker rereads it on SIGHUP, after it dropped root.
    return install(path, QStringLiteral("mosquitto.conf"), error);
}

bool Broker::start(QString* error)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pid > 0)
        return true;
    if (!QFile::exists(m_dir + QStringLiteral("/passwd"))
        && (!writePasswordFile({}, error) || !writeAclFile({}, error)))
        return false;
    if (m_tls && !QFile::exists(certificatePath()) && !writeCertificate(error))
        return false;
    const bool fixedPort = m_port != 0;
    for (int attempt = 0; attempt < (fixedPort ? 1 : 3); ++attempt) {
        if (!fixedPort)
            m_port = pickFreePort();
        if (m_port == 0) {
            *error = QStringLiteral("no free loopback port");
            return false;
        }
        if (!writeConfigFile(error))
            return false;
        if (launch(error))
            return true;
    }
    if (!fixedPort)
        m_port = 0;
    return false;
}

bool Broker::launch(QString* error)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        *error = QStringLiteral("cannot create a pipe: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    const int runningBefore = m_runningLines;
    {
        std::lock_guard<std::mutex> logLock(m_logMutex);
        m_readerDone = false;
    }
    m_pid = spawn({"mosquitto", "-c", (m_dir + QStringLiteral("/mosquitto.conf")).toLocal8Bit()}, fds[1]);
    close(fds[1]);
    if (m_pid < 0) {
        close(fds[0]);
        *error = QStringLiteral("cannot start mosquitto");
        return false;
    }
    CleanupWatcher::watchProcess(m_pid);
    m_reader = std::thread([this, fd = fds[0]] { readOutput(fd); });
    if (waitForLogCount(&m_runningLines, runningBefore, 10000))
        return true;
    // It exited (port taken, bad file) or hung: take it down and report.
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    CleanupWatcher::forgetProcess(m_pid);
    m_pid = -1;
    if (m_reader.joinable())
        m_reader.join();
    QFile log(logPath());
    QString tail;
    if (log.open(QIODevice::ReadOnly))
        tail = QString::fromUtf8(log.readAll().right(400)).trimmed();
    *error = QStringLiteral("mosquitto did not start on port %1: %2").arg(m_port).arg(tail);
    return false;
}

void Broker::readOutput(int fd)
{
    FILE* input = fdopen(fd, "r");
    FILE* log = std::fopen(logPath().toLocal8Bit().constData(), "a");
    char* line = nullptr;
    size_t capacity = 0;
    while (input && getline(&line, &capacity, input) >= 0) {
        if (log) {
            std::fputs(line, log);
            std::fflush(log);
        }
        const QByteArray text = QByteArray(line).trimmed();
        std::lock_guard<std::mutex> lock(m_logMutex);
        if (text.endsWith(" running"))
            ++m_runningLines;
        else if (text.endsWith("Reloading config."))
            ++m_reloadLines;
        m_logChanged.notify_all();
    }
    std::free(line);
    if (log)
        std::fclose(log);
    if (input)
        std::fclose(input);
    else
        close(fd);
    std::lock_guard<std::mutex> lock(m_logMutex);
    m_readerDone = true;
    m_logChanged.notify_all();
}

bool Broker::waitForLogCount(int* counter, int count, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_logMutex);
    m_logChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                          [&] { return *counter > count || m_readerDone; });
    return *counter > count;
}

void Broker::stop()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pid <= 0)
        return;
    kill(m_pid, SIGTERM);
    int status = 0;
    bool reaped = false;
    for (int i = 0; i < 500 && !reaped; ++i) {
        reaped = waitpid(m_pid, &status, WNOHANG) == m_pid;
        if (!reaped)
            usleep(10000);
    }
    if (!reaped) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, &status, 0);
    }
    CleanupWatcher::forgetProcess(m_pid);
    m_pid = -1;
    if (m_reader.joinable())
        m_reader.join();
}

bool Broker::setAccounts(const std::vector<BrokerAccount>& accounts, QString* error)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!writePasswordFile(accounts, error) || !writeAclFile(accounts, error))
        return false;
    if (m_pid <= 0)
        return true;
    int reloadsBefore = 0;
    {
        std::lock_guard<std::mutex> logLock(m_logMutex);
        reloadsBefore = m_reloadLines;
    }
    kill(m_pid, SIGHUP);
    // mosquitto logs the reload and then rereads its files before it reads
    // any further packet, so a client that connects after this returns is
    // checked against the new file.
    if (!waitForLogCount(&m_reloadLines, reloadsBefore, 5000)) {
        *error = QStringLiteral("the broker did not reload its password and permission files");
        return false;
    }
    return true;
}

} // namespace devcloud
