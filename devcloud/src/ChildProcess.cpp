// SPDX-License-Identifier: MIT
#include "ChildProcess.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace devcloud {

pid_t spawn(const std::vector<QByteArray>& arguments, int outputFd)
{
    std::vector<char*> argv;
    for (const QByteArray& argument : arguments)
        argv.push_back(const_cast<char*>(argument.constData()));
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    const int devNull = open("/dev/null", O_RDWR | O_CLOEXEC);
    const pid_t pid = fork();
    if (pid != 0) {
        if (devNull >= 0)
            close(devNull);
        return pid;
    }
    // Child: only async-signal-safe calls from here on.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(127);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (int sig : {SIGTERM, SIGINT, SIGHUP, SIGPIPE})
        signal(sig, SIG_DFL);
    const int out = outputFd >= 0 ? outputFd : devNull;
    dup2(devNull, 0);
    dup2(out, 1);
    dup2(out, 2);
    if (syscall(SYS_close_range, 3U, ~0U, 0U) != 0)
        for (int fd = 3; fd < 4096; ++fd)
            close(fd);
    execvp(argv[0], argv.data());
    _exit(127);
}

bool runToCompletion(const std::vector<QByteArray>& arguments, QString* error)
{
    const pid_t pid = spawn(arguments, -1);
    if (pid < 0) {
        *error = QStringLiteral("cannot start %1").arg(QString::fromUtf8(arguments[0]));
        return false;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        *error = QStringLiteral("%1 failed (status %2)").arg(QString::fromUtf8(arguments[0])).arg(status);
        return false;
    }
    return true;
}

} // namespace devcloud
