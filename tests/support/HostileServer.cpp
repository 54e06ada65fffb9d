// SPDX-License-Identifier: MIT
#include "HostileServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace VornTest {

namespace {

qint64 nowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int listenOnLoopback(int* port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof(address);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 || ::listen(fd, 64) != 0
        || ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(fd);
        return -1;
    }
    *port = ntohs(address.sin_port);
    return fd;
}

// Waits up to ms for the socket to become readable; false on time-out.
bool readable(int socket, int ms)
{
    pollfd p{socket, POLLIN, 0};
    return ::poll(&p, 1, ms) > 0;
}

const char* reasonOf(int status)
{
    switch (status) {
    case 200: return "OK";
    case 206: return "Partial Content";
    case 301: return "Moved Permanently";
    case 302: return "Found";
    case 303: return "See Other";
    case 307: return "Temporary Redirect";
    case 308: return "Permanent Redirect";
    case 404: return "Not Found";
    case 416: return "Range Not Satisfiable";
    default: return "Status";
    }
}

} // namespace

QByteArray HostileServer::Request::header(const QByteArray& name) const
{
    for (const auto& h : headers)
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    return {};
}

HostileServer::Response HostileServer::Response::redirect(int status, const QByteArray& location)
{
    Response r;
    r.status = status;
    r.headers = {{"Location", location}};
    return r;
}

HostileServer::Response HostileServer::Response::json(const QByteArray& body)
{
    Response r;
    r.headers = {{"Content-Type", "application/json"}};
    r.body = body;
    return r;
}

HostileServer::HostileServer(int lifetimeMs)
    : m_lifetimeMs(lifetimeMs)
{
}

HostileServer::~HostileServer()
{
    m_stopping = true;
    if (m_acceptor.joinable())
        m_acceptor.join();
    for (std::thread& t : m_threads)
        t.join();
    if (m_listener >= 0)
        ::close(m_listener);
}

int HostileServer::start()
{
    m_listener = listenOnLoopback(&m_port);
    if (m_listener < 0)
        return -1;
    m_deadline = nowMs() + m_lifetimeMs;
    m_acceptor = std::thread([this] { acceptLoop(); });
    return m_port;
}

void HostileServer::route(const QByteArray& prefix, Handler handler)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_routes.emplace_back(prefix, std::move(handler));
}

QString HostileServer::url(const QString& path) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path);
}

QList<HostileServer::Request> HostileServer::requests() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

bool HostileServer::expired() const { return m_stopping || nowMs() > m_deadline; }

void HostileServer::acceptLoop()
{
    while (!expired()) {
        if (!readable(m_listener, 50))
            continue;
        const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            continue;
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        std::lock_guard<std::mutex> lock(m_mutex);
        m_threads.emplace_back([this, socket] {
            serve(socket);
            ::close(socket);
        });
    }
}

void HostileServer::serve(int socket)
{
    // One request per connection (answers say "Connection: close").
    QByteArray head;
    char buffer[16384];
    while (!head.contains("\r\n\r\n")) {
        if (expired() || head.size() > 65536)
            return;
        if (!readable(socket, 50))
            continue;
        const ssize_t got = ::recv(socket, buffer, sizeof(buffer), 0);
        if (got <= 0)
            return;
        head.append(buffer, int(got));
    }
    const int end = head.indexOf("\r\n\r\n");
    Request request;
    request.body = head.mid(end + 4);
    const QList<QByteArray> lines = head.left(end).split('\n');
    const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
    request.method = first.value(0);
    request.target = first.value(1);
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.append({lines[i].left(colon).trimmed(), lines[i].mid(colon + 1).trimmed()});
    }
    const qint64 length = request.header("Content-Length").toLongLong();
    while (request.body.size() < length && length < (1 << 20)) {
        if (expired() || !readable(socket, 50))
            continue;
        const ssize_t got = ::recv(socket, buffer, sizeof(buffer), 0);
        if (got <= 0)
            return;
        request.body.append(buffer, int(got));
    }

    Handler handler;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.append(request);
        int best = -1;
        for (const auto& r : m_routes) {
            if (request.path().startsWith(r.first) && r.first.size() > best) {
                best = r.first.size();
                handler = r.second;
            }
        }
    }
    Response response;
    if (handler)
        response = handler(request);
    else
        response.status = 404;

    QByteArray out = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reasonOf(response.status) + "\r\n";
    for (const auto& h : response.headers)
        out += h.first + ": " + h.second + "\r\n";
    if (response.announcedLength == -2)
        out += "Transfer-Encoding: chunked\r\n";
    else
        out += "Content-Length: "
            + QByteArray::number(response.announcedLength >= 0 ? response.announcedLength : response.body.size())
            + "\r\n";
    out += "Connection: close\r\n\r\n";
    if (!sendAll(socket, out.constData(), out.size()) || request.method == "HEAD")
        return;
    if (sendBody(socket, response) && response.stallAfter >= 0)
        holdUntilClientLeaves(socket);
}

bool HostileServer::sendAll(int socket, const char* data, qint64 size)
{
    while (size > 0) {
        if (expired())
            return false;
        const ssize_t sent = ::send(socket, data, size_t(size), MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        data += sent;
        size -= sent;
    }
    return true;
}

bool HostileServer::sendBody(int socket, const Response& response)
{
    qint64 limit = response.body.size();
    if (response.stallAfter >= 0)
        limit = std::min(limit, response.stallAfter);
    if (response.cutAfter >= 0)
        limit = std::min(limit, response.cutAfter);
    const bool chunked = response.announcedLength == -2;
    // Trickled bytes go out in slices a tenth of a second apart (at least
    // one byte per slice).
    const qint64 slice = response.bytesPerSecond > 0 ? std::max(1, response.bytesPerSecond / 10) : limit;
    for (qint64 offset = 0; offset < limit; offset += slice) {
        const qint64 count = std::min(slice, limit - offset);
        QByteArray piece = response.body.mid(int(offset), int(count));
        if (chunked)
            piece = QByteArray::number(count, 16) + "\r\n" + piece + "\r\n";
        if (!sendAll(socket, piece.constData(), piece.size()))
            return false;
        if (response.bytesPerSecond > 0) {
            const qint64 until = nowMs() + count * 1000 / response.bytesPerSecond;
            while (nowMs() < until) {
                if (expired())
                    return false;
                // The client left: stop trickling.
                char peek;
                if (readable(socket, 20) && ::recv(socket, &peek, 1, MSG_PEEK | MSG_DONTWAIT) == 0)
                    return false;
            }
        }
    }
    if (chunked && limit == response.body.size())
        return sendAll(socket, "0\r\n\r\n", 5);
    return true;
}

void HostileServer::holdUntilClientLeaves(int socket)
{
    char byte;
    while (!expired()) {
        if (readable(socket, 50) && ::recv(socket, &byte, 1, MSG_DONTWAIT) == 0)
            return;
    }
}

SilentListener::SilentListener() { m_listener = listenOnLoopback(&m_port); }

SilentListener::~SilentListener()
{
    if (m_listener >= 0)
        ::close(m_listener);
}

int SilentListener::connections()
{
    while (m_listener >= 0 && readable(m_listener, 0)) {
        const int socket = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            break;
        ::close(socket);
        ++m_count;
    }
    return m_count;
}

} // namespace VornTest
