// SPDX-License-Identifier: MIT
#include "CleanupWatcher.h"

#include <QByteArray>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include <fcntl.h>
#include <limits.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace devcloud::CleanupWatcher {

namespace {

int g_pipe = -1; // write end, in the dev cloud

void tell(const QByteArray& line)
{
    if (g_pipe < 0)
        return;
    // One write per line, shorter than PIPE_BUF: lines never interleave.
    const QByteArray text = line + '\n';
    if (text.size() >= int(PIPE_BUF))
        return;
    ssize_t written;
    do {
        written = write(g_pipe, text.constData(), size_t(text.size()));
    } while (written < 0 && errno == EINTR);
}

bool gone(pid_t pid)
{
    if (kill(pid, 0) != 0)
        return true;
    // Reparented to a PID 1 that does not reap: a zombie holds nothing.
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    std::getline(stat, field, ')');
    char state = 0;
    stat >> state;
    return state == 'Z';
}

// Ends the processes (SIGTERM, SIGKILL after 1 s), then removes the folders.
void cleanUp(const std::set<pid_t>& processes, const std::set<std::string>& folders)
{
    for (pid_t pid : processes)
        kill(pid, SIGTERM);
    for (pid_t pid : processes) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        while (!gone(pid) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (!gone(pid))
            kill(pid, SIGKILL);
    }
    for (const std::string& folder : folders) {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
}

[[noreturn]] void watch(int input)
{
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE})
        signal(sig, SIG_IGN);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    std::set<pid_t> processes;
    std::set<std::string> folders;
    std::string pending;
    char buffer[4096];
    for (;;) {
        const ssize_t n = read(input, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break; // the dev cloud has ended
        pending.append(buffer, size_t(n));
        size_t end;
        while ((end = pending.find('\n')) != std::string::npos) {
            const std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            const size_t space = line.find(' ');
            const std::string verb = line.substr(0, space);
            const std::string argument = space == std::string::npos ? std::string() : line.substr(space + 1);
            if (verb == "watch")
                processes.insert(pid_t(std::atol(argument.c_str())));
            else if (verb == "forget")
                processes.erase(pid_t(std::atol(argument.c_str())));
            else if (verb == "remove")
                folders.insert(argument);
        }
    }
    cleanUp(processes, folders);
    _exit(0);
}

} // namespace

bool start(QString* error)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        *error = QStringLiteral("cannot create the watcher's pipe: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    const pid_t pid = fork();
    if (pid < 0) {
        *error = QStringLiteral("cannot start the watcher: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        close(fds[0]);
        close(fds[1]);
        return false;
    }
    if (pid == 0) {
        // Only the read end stays open: the watcher must hold neither the
        // write end (it would never see the end) nor anyone's output pipe.
        const int devNull = open("/dev/null", O_RDWR);
        for (int fd : {0, 1, 2})
            dup2(devNull, fd);
        dup2(fds[0], 3);
        if (syscall(SYS_close_range, 4U, ~0U, 0U) != 0)
            for (int fd = 4; fd < 4096; ++fd)
                close(fd);
        setpgid(0, 0); // out of the terminal's process group
        watch(3);
    }
    close(fds[0]);
    g_pipe = fds[1];
    return true;
}

void watchProcess(pid_t pid) { tell("watch " + QByteArray::number(pid)); }

void forgetProcess(pid_t pid) { tell("forget " + QByteArray::number(pid)); }

void removeIfAbandoned(const QString& path) { tell("remove " + path.toLocal8Bit()); }

} // namespace devcloud::CleanupWatcher
