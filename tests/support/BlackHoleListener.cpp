// SPDX-License-Identifier: MIT
#include "BlackHoleListener.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace VornTest {

namespace {

// Starts a non-blocking connect; -1 on a hard failure.
int startConnect(quint16 port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 && errno != EINPROGRESS) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Whether the connect on fd completes within ms.
bool completes(int fd, int ms)
{
    pollfd entry{fd, POLLOUT, 0};
    return ::poll(&entry, 1, ms) > 0;
}

} // namespace

BlackHoleListener::BlackHoleListener(quint16 port)
{
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_listener < 0)
        return;
    // A port whose earlier connections linger in TIME_WAIT can be taken over.
    const int reuse = 1;
    ::setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || ::listen(m_listener, 0) != 0
        || ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return;
    m_port = ntohs(address.sin_port);
    // Connections queue up unaccepted until the kernel starts dropping
    // SYNs; the first connect left hanging proves it (and stays, so that
    // the queue stays full). Bounded: a backlog of 0 holds one or two.
    for (int i = 0; i < 16 && !m_valid; ++i) {
        const int fd = startConnect(m_port);
        if (fd < 0)
            return;
        m_fillers.push_back(fd);
        m_valid = !completes(fd, 300);
    }
}

BlackHoleListener::~BlackHoleListener()
{
    for (int fd : m_fillers)
        ::close(fd);
    if (m_listener >= 0)
        ::close(m_listener);
}

} // namespace VornTest
