// SPDX-License-Identifier: MIT
// Connections that hold on to the server without finishing a request, or
// stay open and idle after one, must not keep a new client waiting: each
// has a thread of its own. (The figures under load are in docs/BENCHMARKS.md,
// from bench/devcloud.)

#include "RawHttp.h"

#include <DevCloudProcess.h>

#include <QUrl>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using DevCloudTest::RawConnection;
using DevCloudTest::statusOf;

TEST(Starvation, silentHalfSentAndIdleConnectionsDoNotHoldUpANewOne)
{
    VornTest::DevCloudProcess cloud;
    ASSERT_TRUE(cloud.start()) << cloud.output().toStdString();
    const int port = QUrl(cloud.baseUrl()).port();
    const QByteArray request = "GET /devcloud/health HTTP/1.1\r\nHost: x\r\n\r\n";

    // Far more than the 8 workers the server used to have. A half-sent
    // request used to hold its worker for the 30 s read time-out, a silent
    // or idle connection for the 5 s keep-alive time-out.
    std::vector<std::unique_ptr<RawConnection>> holders;
    for (int i = 0; i < 120; ++i) {
        auto connection = std::make_unique<RawConnection>();
        ASSERT_TRUE(connection->open(port));
        if (i % 3 == 1) {
            ASSERT_TRUE(connection->send("GET /devcloud/health HTTP/1.1\r\nHost: x\r\n"));
        } else if (i % 3 == 2) {
            ASSERT_TRUE(connection->send(request));
            ASSERT_EQ(statusOf(connection->readResponse()), 200);
        }
        holders.push_back(std::move(connection));
    }

    // A generous bound: it only tells an answer from a wait for time-outs.
    RawConnection newcomer;
    ASSERT_TRUE(newcomer.open(port));
    ASSERT_TRUE(newcomer.send(request));
    EXPECT_EQ(statusOf(newcomer.readResponse(10000)), 200);
}
