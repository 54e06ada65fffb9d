// SPDX-License-Identifier: MIT
// Signing in once: the password prompt on a real pseudo-terminal, the token
// file and its permissions, later commands using it, logout, and no secret
// in any output.

#include "VornProcess.h"

#include <TestFiles.h>

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

const QByteArray kPassword = "scan3d!";

// vorn on the slave side of a pseudo-terminal, as a user at a terminal.
class TerminalRun {
public:
    TerminalRun(const QStringList& args, const QString& configHome)
    {
        QList<QByteArray> argv{QFile::encodeName(vornBinary())};
        for (const QString& arg : args)
            argv << arg.toUtf8();
        const QByteArray home = "XDG_CONFIG_HOME=" + QFile::encodeName(configHome);
        m_pid = ::forkpty(&m_master, nullptr, nullptr, nullptr);
        if (m_pid == 0) {
            ::putenv(const_cast<char*>(home.constData()));
            ::unsetenv("VORN_PASSWORD");
            std::vector<char*> pointers;
            for (QByteArray& arg : argv)
                pointers.push_back(arg.data());
            pointers.push_back(nullptr);
            ::execv(pointers[0], pointers.data());
            ::_exit(127);
        }
    }
    ~TerminalRun()
    {
        if (m_pid > 0 && !m_reaped) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
        if (m_master >= 0)
            ::close(m_master);
    }

    bool started() const { return m_pid > 0; }
    int master() const { return m_master; }
    const QByteArray& seen() const { return m_seen; }

    // Reads what the terminal shows until it holds text (or the end).
    bool waitFor(const QByteArray& text, int timeoutMs = 20000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!m_seen.contains(text)) {
            if (!readSome(deadline))
                return false;
        }
        return true;
    }

    void type(const QByteArray& keys) { ASSERT_EQ(::write(m_master, keys.constData(), size_t(keys.size())), keys.size()); }

    // Reads to the end and reaps vorn; the wait status.
    int finish(int timeoutMs = 30000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (readSome(deadline)) {
        }
        int status = -1;
        while (!deadline.hasExpired()) {
            if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
                m_reaped = true;
                return status;
            }
            ::poll(nullptr, 0, 20); // bounded by the deadline: the child is exiting
        }
        return -1;
    }

private:
    bool readSome(const QDeadlineTimer& deadline)
    {
        pollfd fd{m_master, POLLIN, 0};
        if (::poll(&fd, 1, int(qMax<qint64>(0, deadline.remainingTime()))) <= 0)
            return false;
        char buffer[512];
        const ssize_t n = ::read(m_master, buffer, sizeof buffer);
        if (n <= 0) // EIO once the slave side is closed
            return false;
        m_seen.append(buffer, int(n));
        return true;
    }

    pid_t m_pid = -1;
    int m_master = -1;
    bool m_reaped = false;
    QByteArray m_seen;
};

mode_t modeOf(const QString& path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : mode_t(-1);
}

} // namespace

TEST(VornLogin, promptHidesThePasswordAndStoresTheTokenForTheUserOnly)
{
    QTemporaryDir home;
    TerminalRun vorn({"login", "demo@vorn.example"}, home.path());
    ASSERT_TRUE(vorn.started());
    ASSERT_TRUE(vorn.waitFor("Password for demo@vorn.example: ")) << vorn.seen().toStdString();
    vorn.type(kPassword + "\n");
    const int status = vorn.finish();
    ASSERT_TRUE(WIFEXITED(status)) << vorn.seen().toStdString();
    EXPECT_EQ(WEXITSTATUS(status), 0) << vorn.seen().toStdString();
    EXPECT_FALSE(vorn.seen().contains(kPassword)) << "the terminal echoed the password: " << vorn.seen().toStdString();
    EXPECT_TRUE(vorn.seen().contains("Success (0)")) << vorn.seen().toStdString();

    const QString tokenFile = home.filePath("vorn/token");
    ASSERT_TRUE(QFileInfo::exists(tokenFile));
    EXPECT_EQ(modeOf(tokenFile), mode_t(0600));
    EXPECT_EQ(modeOf(home.filePath("vorn")), mode_t(0700));
    QFile file(tokenFile);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray stored = file.readAll();
    EXPECT_FALSE(stored.contains(kPassword));
    EXPECT_TRUE(stored.contains("\"token\"")) << stored.toStdString();
    // The token itself was never shown.
    const QByteArray token = QJsonDocument::fromJson(stored).object().value("token").toString().toUtf8();
    ASSERT_FALSE(token.isEmpty());
    EXPECT_FALSE(vorn.seen().contains(token)) << vorn.seen().toStdString();
}

TEST(VornLogin, ctrlCAtThePromptGivesTheTerminalItsEchoBack)
{
    QTemporaryDir home;
    TerminalRun vorn({"login", "demo@vorn.example"}, home.path());
    ASSERT_TRUE(vorn.started());
    ASSERT_TRUE(vorn.waitFor("Password for")) << vorn.seen().toStdString();
    termios during{};
    ASSERT_EQ(::tcgetattr(vorn.master(), &during), 0);
    EXPECT_FALSE(during.c_lflag & ECHO) << "echo is on while the password is typed";
    vorn.type("sec\x03"); // Ctrl-C: the terminal sends SIGINT
    const int status = vorn.finish();
    ASSERT_TRUE(WIFSIGNALED(status)) << vorn.seen().toStdString();
    EXPECT_EQ(WTERMSIG(status), SIGINT);
    termios after{};
    ASSERT_EQ(::tcgetattr(vorn.master(), &after), 0);
    EXPECT_TRUE(after.c_lflag & ECHO) << "the terminal was left without echo";
    EXPECT_FALSE(QFileInfo::exists(home.filePath("vorn/token")));
}

TEST(VornLogin, storedTokenServesLaterCommandsUntilLogout)
{
    QTemporaryDir home;
    const QMap<QString, QString> env{{"XDG_CONFIG_HOME", home.path()}, {"VORN_TOKEN", ""}};
    const QStringList profile{"--json", "post", "GetUserProfile", "userID:=1001"};

    // Refusals first: nothing is stored by them.
    struct Refusal {
        const char* name;
        QByteArray input;
        int exitStatus;
    };
    const QList<Refusal> refusals{
        {"wrong password", "wrong\n", 6},
        {"empty standard input", "", 64},
    };
    for (const Refusal& r : refusals) {
        SCOPED_TRACE(r.name);
        const VornRun run = runVorn({"login", "demo@vorn.example", "--password-stdin"}, env, 60000, r.input);
        EXPECT_EQ(run.exitStatus, r.exitStatus) << describe(run);
        EXPECT_FALSE(QFileInfo::exists(home.filePath("vorn/token"))) << describe(run);
    }
    // No terminal and no password: a clear refusal, not a hang.
    const VornRun noTerminal = runVorn({"login", "demo@vorn.example"}, env);
    EXPECT_EQ(noTerminal.exitStatus, 64) << describe(noTerminal);
    EXPECT_TRUE(noTerminal.err.contains("--password-stdin")) << describe(noTerminal);

    const VornRun login = runVorn({"--json", "login", "demo@vorn.example", "--password-stdin"}, env, 60000,
                                  kPassword + "\n");
    ASSERT_EQ(login.exitStatus, 0) << describe(login);
    const QString token = QJsonDocument::fromJson([&] {
                              QFile file(home.filePath("vorn/token"));
                              return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
                          }())
                              .object()
                              .value("token")
                              .toString();
    ASSERT_FALSE(token.isEmpty());
    EXPECT_FALSE(login.out.contains(token)) << describe(login);
    EXPECT_EQ(jsonOf(login).value("tokenFile").toString(), home.filePath("vorn/token"));

    const VornRun signedIn = runVorn(profile, env);
    EXPECT_EQ(signedIn.exitStatus, 0) << describe(signedIn);

    // config names the stored token's owner but shows no secret, neither
    // the token nor a broker password of the configuration.
    QJsonObject cloud = VornTest::readJsonObject(qEnvironmentVariable("NUBRA_CONFIG"));
    QJsonObject mqtt = cloud.value("mqtt").toObject();
    mqtt.insert("password", "broker-secret");
    cloud.insert("mqtt", mqtt);
    const QString configFile = home.filePath("config.json");
    ASSERT_TRUE(VornTest::writeFile(configFile, QJsonDocument(cloud).toJson()));
    const VornRun config = runVorn({"--json", "--config", configFile, "config"}, env);
    ASSERT_EQ(config.exitStatus, 0) << describe(config);
    EXPECT_FALSE(config.out.contains(token)) << describe(config);
    EXPECT_FALSE(config.out.contains("broker-secret")) << describe(config);
    EXPECT_TRUE(config.out.contains("(set, 13 characters)")) << describe(config);
    const QJsonObject stored = jsonOf(config).value("result").toObject().value("storedToken").toObject();
    EXPECT_EQ(stored.value("account").toString(), "demo@vorn.example");
    EXPECT_EQ(stored.value("token").toString(), QStringLiteral("(set, %1 characters)").arg(token.size()));

    // --token wins over the stored one.
    const VornRun explicitToken = runVorn(profile + QStringList{"--token", "nonsense"}, env);
    EXPECT_EQ(explicitToken.exitStatus, 6) << describe(explicitToken);

    const VornRun logout = runVorn({"logout"}, env);
    EXPECT_EQ(logout.exitStatus, 0) << describe(logout);
    EXPECT_FALSE(QFileInfo::exists(home.filePath("vorn/token")));
    const VornRun again = runVorn({"logout"}, env);
    EXPECT_EQ(again.exitStatus, 0) << describe(again);
    const VornRun signedOut = runVorn(profile, env);
    EXPECT_EQ(signedOut.exitStatus, 6) << describe(signedOut);
}
