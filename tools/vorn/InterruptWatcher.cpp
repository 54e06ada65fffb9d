// SPDX-License-Identifier: MIT
#include "InterruptWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int g_pipe[2] = {-1, -1};

extern "C" void forwardSignal(int signalNumber)
{
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    // Nothing to do about a full pipe: an interrupt is already pending.
    [[maybe_unused]] const ssize_t written = ::write(g_pipe[0], &byte, 1);
}

} // namespace

InterruptWatcher& InterruptWatcher::instance()
{
    static InterruptWatcher* watcher = new InterruptWatcher; // lives until exit on purpose
    return *watcher;
}

InterruptWatcher::InterruptWatcher()
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_pipe) != 0) {
        std::perror("vorn: socketpair");
        return;
    }
    m_notifier = new QSocketNotifier(g_pipe[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &InterruptWatcher::readSignal);

    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void InterruptWatcher::readSignal()
{
    unsigned char byte = 0;
    if (::read(g_pipe[1], &byte, 1) != 1)
        return;
    ++m_count;
    emit interrupted(int(byte), m_count);
}
