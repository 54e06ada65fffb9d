// SPDX-License-Identifier: MIT
// Bodies the dev cloud holds in memory are bounded however they are sent:
// a chunked body (no length announced) is cut off once past the limit,
// without reading the rest.

#include "RawHttp.h"

#include <DevCloudProcess.h>

#include <QFile>
#include <QUrl>

#include <gtest/gtest.h>

namespace {

using DevCloudTest::chunk;
using DevCloudTest::RawConnection;
using DevCloudTest::statusOf;

constexpr qint64 kMiB = 1024 * 1024;

// Peak resident memory of a process (VmHWM), in bytes.
qint64 peakMemory(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong() * 1024;
    return -1;
}

} // namespace

TEST(BodyLimits, chunkedBodiesAreBoundedLikeAnnouncedOnes)
{
    VornTest::DevCloudProcess cloud;
    ASSERT_TRUE(cloud.start()) << cloud.output().toStdString();
    const int port = QUrl(cloud.baseUrl()).port();
    const qint64 peakBefore = peakMemory(cloud.processId());

    struct Case {
        const char* what;
        const char* path;
        qint64 bodyBytes; // the body the client would send, chunk by chunk
        int status;
    };
    const Case cases[] = {
        // Parsed: the wrong credentials are what is refused.
        {"a chunked body under the limit is read", "/api/v1/user/login", 3 * kMiB, 401},
        {"past the limit: 413 before the rest is read", "/api/v1/user/login", 256 * kMiB, 413},
        // Test controls' bodies are read whole by the HTTP server: it would
        // take any chunked body, so they need a length.
        {"a test control needs a length", "/devcloud/publish", 1024, 411},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        RawConnection connection;
        ASSERT_TRUE(connection.open(port));
        ASSERT_TRUE(connection.send(QByteArray("POST ") + c.path
                                    + " HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                                      "Transfer-Encoding: chunked\r\n\r\n"
                                    + chunk(R"({"account": "nobody@vorn.example", "password": "x", "pad": ")")));
        const QByteArray padding(64 * 1024, 'a');
        qint64 sent = 0;
        // Stops when the cloud answers early, or stops reading (the send
        // then runs out of time).
        while (sent < c.bodyBytes && !connection.readable() && connection.send(chunk(padding), 3000))
            sent += padding.size();
        if (sent >= c.bodyBytes)
            connection.send(chunk(R"("})") + "0\r\n\r\n");
        const QByteArray response = connection.readResponse();
        EXPECT_EQ(statusOf(response), c.status) << response.left(300).toStdString();
        if (c.status == 413) {
            // Loopback socket buffers hold a few MiB; the rest was never read.
            EXPECT_LT(sent, 32 * kMiB);
            EXPECT_TRUE(response.contains("too large")) << response.toStdString();
        }
    }
    const qint64 peakAfter = peakMemory(cloud.processId());
    ASSERT_GT(peakBefore, 0);
    // Read whole, the 256 MiB body took twice that; the bound leaves room
    // for a sanitizer's allocator.
    EXPECT_LT(peakAfter - peakBefore, 128 * kMiB) << "memory is bounded by the limit, not by the body";
}
