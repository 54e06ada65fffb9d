// SPDX-License-Identifier: MIT
#pragma once

// A cpp-httplib server (plain or TLS) on a free loopback port, served from
// its own thread for the life of the object.

#include <httplib.h>

#include <QString>

#include <memory>
#include <thread>

namespace VornTest {

template <typename ServerType>
class LocalServer {
public:
    template <typename... Args>
    explicit LocalServer(Args&&... args)
        : server(std::forward<Args>(args)...)
    {
        server.set_tcp_nodelay(true);
    }
    ~LocalServer() { stop(); }

    // Binds and serves; returns the port, or -1.
    int start()
    {
        port = server.bind_to_any_port("127.0.0.1");
        if (port <= 0)
            return -1;
        // The socket listens from bind on: connections wait in the backlog
        // until the accept loop runs.
        thread = std::thread([this] { server.listen_after_bind(); });
        return port;
    }
    void stop()
    {
        if (thread.joinable()) {
            server.stop();
            thread.join();
        }
    }
    QString url(const char* scheme = "http") const
    {
        return QStringLiteral("%1://127.0.0.1:%2").arg(QLatin1String(scheme)).arg(port);
    }

    ServerType server;
    int port = -1;

private:
    std::thread thread;
};

} // namespace VornTest
