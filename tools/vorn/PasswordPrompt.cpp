// SPDX-License-Identifier: MIT
#include "PasswordPrompt.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace PasswordPrompt {

namespace {

// What the signal handler needs to put the terminal back.
int g_tty = -1;
struct termios g_saved;

extern "C" void restoreAndDie(int signalNumber)
{
    ::tcsetattr(g_tty, TCSAFLUSH, &g_saved);
    ::write(g_tty, "\n", 1);
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}

} // namespace

bool ask(const QString& prompt, QString* password, QString* error)
{
    // Standard input not a terminal: the password was meant to come from it
    // (or from nowhere, in a script); asking elsewhere would hang a script
    // that has a terminal somewhere up its process tree.
    const int tty = ::isatty(STDIN_FILENO) ? ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC) : -1;
    if (tty < 0) {
        *error = QStringLiteral("standard input is not a terminal to ask for the password on: use "
                                "--password-stdin");
        return false;
    }
    struct termios saved;
    if (::tcgetattr(tty, &saved) != 0) {
        *error = QStringLiteral("cannot switch the terminal's echo off: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        ::close(tty);
        return false;
    }
    g_tty = tty;
    g_saved = saved;
    struct sigaction restore {};
    restore.sa_handler = restoreAndDie;
    struct sigaction oldInt {}, oldTerm {}, oldHup {};
    ::sigaction(SIGINT, &restore, &oldInt);
    ::sigaction(SIGTERM, &restore, &oldTerm);
    ::sigaction(SIGHUP, &restore, &oldHup);

    struct termios silent = saved;
    silent.c_lflag &= ~tcflag_t(ECHO);
    silent.c_lflag |= ECHONL | ICANON;
    ::tcsetattr(tty, TCSAFLUSH, &silent);
    const QByteArray text = prompt.toLocal8Bit();
    ::write(tty, text.constData(), size_t(text.size()));

    std::string line;
    bool ended = false;
    char c = 0;
    for (;;) {
        const ssize_t n = ::read(tty, &c, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        if (c == '\n') {
            ended = true;
            break;
        }
        line.push_back(c);
    }
    ::tcsetattr(tty, TCSAFLUSH, &saved);
    ::sigaction(SIGINT, &oldInt, nullptr);
    ::sigaction(SIGTERM, &oldTerm, nullptr);
    ::sigaction(SIGHUP, &oldHup, nullptr);
    g_tty = -1;
    ::close(tty);
    if (!ended && line.empty()) {
        *error = QStringLiteral("no password given (end of input)");
        return false;
    }
    *password = QString::fromLocal8Bit(line.data(), int(line.size()));
    return true;
}

bool readLine(FILE* input, QString* password, QString* error)
{
    std::string line;
    int c = 0;
    while ((c = std::fgetc(input)) != EOF && c != '\n')
        line.push_back(char(c));
    if (c == EOF && line.empty()) {
        *error = QStringLiteral("--password-stdin: standard input is empty");
        return false;
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    *password = QString::fromUtf8(line.data(), int(line.size()));
    return true;
}

} // namespace PasswordPrompt
