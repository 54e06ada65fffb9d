// SPDX-License-Identifier: MIT
#pragma once

// HTTP over a plain loopback socket, byte by byte, for what a well-behaved
// client never sends: endless chunked bodies, half-sent requests, silence.

#include <QByteArray>

namespace DevCloudTest {

class RawConnection {
public:
    RawConnection() = default;
    ~RawConnection();
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    // Connects to 127.0.0.1:port (non-blocking afterwards).
    bool open(int port);
    // Sends all of data, waiting at most timeoutMs for room; false when the
    // peer closed or the time ran out.
    bool send(const QByteArray& data, int timeoutMs = 10000);
    // Whether the peer has sent something (or closed) already.
    bool readable(int timeoutMs = 0);
    // Reads until a whole response head and its Content-Length body arrived
    // (or the peer closed, or timeoutMs passed); returns what arrived.
    QByteArray readResponse(int timeoutMs = 10000);

private:
    int m_fd = -1;
};

// The status code of a response ("HTTP/1.1 413 ..."), 0 when none.
int statusOf(const QByteArray& response);

// One HTTP/1.1 chunk.
QByteArray chunk(const QByteArray& data);

} // namespace DevCloudTest
