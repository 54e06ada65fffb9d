// SPDX-License-Identifier: MIT
#pragma once

// A deliberately misbehaving HTTP/1.1 server for tests at the client's trust
// boundary: loopback only, a free port, and a bounded life (every connection
// is closed once the lifetime is over, so a client that waits forever shows
// up as a failed test, not a hung one). Each route answers with a scripted
// Response that can redirect anywhere, announce one size and send another,
// trickle, stall, or cut; every request is recorded with its headers.
// Written on plain sockets: cpp-httplib would correct exactly the faults a
// test needs.

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace VornTest {

class HostileServer {
public:
    struct Request {
        QByteArray method;
        QByteArray target; // path and query as sent
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;
        // The value of a header (name without case), empty if absent.
        QByteArray header(const QByteArray& name) const;
        QByteArray path() const { return target.left(target.indexOf('?') < 0 ? target.size() : target.indexOf('?')); }
    };

    struct Response {
        int status = 200;
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;
        // Content-Length sent: -1 for body.size(); -2 for none (chunked).
        qint64 announcedLength = -1;
        // 0: all at once; else body bytes per second.
        int bytesPerSecond = 0;
        // Body bytes sent before the server goes silent and holds the
        // connection until the client leaves (or the lifetime ends).
        qint64 stallAfter = -1;
        // Body bytes sent before the server closes the connection.
        qint64 cutAfter = -1;

        static Response redirect(int status, const QByteArray& location);
        static Response json(const QByteArray& body);
    };
    using Handler = std::function<Response(const Request&)>;

    explicit HostileServer(int lifetimeMs = 60000);
    ~HostileServer();
    HostileServer(const HostileServer&) = delete;
    HostileServer& operator=(const HostileServer&) = delete;

    // Binds 127.0.0.1 on a free port and serves; returns the port, or -1.
    int start();
    // Answers requests whose path starts with prefix (the longest prefix
    // wins); others get 404.
    void route(const QByteArray& prefix, Handler handler);
    QString url(const QString& path = QString()) const;

    QList<Request> requests() const;
    int port() const { return m_port; }

private:
    void acceptLoop();
    void serve(int socket);
    bool sendAll(int socket, const char* data, qint64 size);
    bool sendBody(int socket, const Response& response);
    void holdUntilClientLeaves(int socket);
    bool expired() const;

    const int m_lifetimeMs;
    int m_listener = -1;
    int m_port = -1;
    std::atomic<bool> m_stopping{false};
    qint64 m_deadline = 0;
    mutable std::mutex m_mutex;
    std::vector<std::pair<QByteArray, Handler>> m_routes;
    QList<Request> m_requests;
    std::vector<std::thread> m_threads;
    std::thread m_acceptor;
};

// A TCP listener that answers nothing and counts the connections it gets:
// proof that a refused URL (gopher://, ftp://) never reached its port.
class SilentListener {
public:
    SilentListener();
    ~SilentListener();
    int port() const { return m_port; }
    // Connections accepted so far (checked without blocking).
    int connections();

private:
    int m_listener = -1;
    int m_port = -1;
    int m_count = 0;
};

} // namespace VornTest
