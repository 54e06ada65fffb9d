// SPDX-License-Identifier: MIT
#include "RawHttp.h"

#include <QDeadlineTimer>

#include <cerrno>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace DevCloudTest {

RawConnection::~RawConnection()
{
    if (m_fd >= 0)
        close(m_fd);
}

bool RawConnection::open(int port)
{
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd < 0)
        return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(quint16(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        return false;
    return fcntl(m_fd, F_SETFL, fcntl(m_fd, F_GETFL) | O_NONBLOCK) == 0;
}

bool RawConnection::send(const QByteArray& data, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    qsizetype sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(m_fd, data.constData() + sent, size_t(data.size() - sent), MSG_NOSIGNAL);
        if (n > 0) {
            sent += n;
            continue;
        }
        if (n < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        pollfd p{m_fd, POLLOUT, 0};
        if (poll(&p, 1, int(qMax<qint64>(0, deadline.remainingTime()))) <= 0 || (p.revents & (POLLERR | POLLHUP)))
            return false;
    }
    return true;
}

bool RawConnection::readable(int timeoutMs)
{
    pollfd p{m_fd, POLLIN, 0};
    return poll(&p, 1, timeoutMs) > 0;
}

QByteArray RawConnection::readResponse(int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    QByteArray answer;
    for (;;) {
        const int headEnd = answer.indexOf("\r\n\r\n");
        if (headEnd >= 0) {
            const int lengthAt = answer.toLower().indexOf("content-length:");
            const int length = lengthAt >= 0 && lengthAt < headEnd
                ? answer.mid(lengthAt + 15, answer.indexOf("\r\n", lengthAt) - lengthAt - 15).trimmed().toInt()
                : 0;
            if (answer.size() >= headEnd + 4 + length)
                return answer;
        }
        if (!readable(int(qMax<qint64>(0, deadline.remainingTime()))))
            return answer;
        char buffer[65536];
        const ssize_t n = recv(m_fd, buffer, sizeof buffer, 0);
        if (n <= 0 && !(n < 0 && (errno == EAGAIN || errno == EINTR)))
            return answer; // closed (or reset)
        if (n > 0)
            answer.append(buffer, int(n));
    }
}

int statusOf(const QByteArray& response)
{
    if (!response.startsWith("HTTP/1.1 "))
        return 0;
    return response.mid(9, 3).toInt();
}

QByteArray chunk(const QByteArray& data) { return QByteArray::number(data.size(), 16) + "\r\n" + data + "\r\n"; }

} // namespace DevCloudTest
