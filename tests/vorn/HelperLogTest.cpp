// SPDX-License-Identifier: MIT
// The helper's log lines that vorn reads: transfer progress and errors.

#include "HelperLog.h"

#include <QList>

#include <gtest/gtest.h>

TEST(HelperLog, progressLinesOfBothDownloadKindsParse)
{
    struct Case {
        const char* line;
        bool parses;
        const char* name;
        qint64 received;
        qint64 total;
    };
    const QList<Case> cases{
        {"1140result:http://127.0.0.1:5/files/a.bin bytesReceived: 1024 bytesTotal: 4096", true,
         "http://127.0.0.1:5/files/a.bin", 1024, 4096},
        {"832result:VS-300_Pro-2.1.0.vpkg bytesReceived: 0 bytesTotal: 8400953", true, "VS-300_Pro-2.1.0.vpkg", 0,
         8400953},
        {"832result:name with spaces bytesReceived: 5 bytesTotal: -1", true, "name with spaces", 5, -1},
        {"832result:x bytesReceived: 5000000000 bytesTotal: 6000000000", true, "x", 5000000000LL, 6000000000LL},
        {"result:x bytesReceived: 1 bytesTotal: 2", false, "", 0, 0},
        {"832result:x bytesReceived: 1", false, "", 0, 0},
        {"Nubra Post : userLogin", false, "", 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        HelperLog::Progress progress;
        ASSERT_EQ(HelperLog::parseProgress(QString::fromUtf8(c.line), &progress), c.parses);
        if (!c.parses)
            continue;
        EXPECT_EQ(progress.name, QString::fromUtf8(c.name));
        EXPECT_EQ(progress.received, c.received);
        EXPECT_EQ(progress.total, c.total);
    }
}

TEST(HelperLog, errorLinesGiveTheClientCode)
{
    EXPECT_EQ(HelperLog::parseError("Nubra Get ErrorOccurred: 401"), 401);
    EXPECT_EQ(HelperLog::parseError("Nubra Get ErrorOccurred: 0"), 0);
    EXPECT_EQ(HelperLog::parseError("Nubra Post ErrorOccurred: 401"), -1); // the catalogue calls' line
    EXPECT_EQ(HelperLog::parseError("Soft Version Get Success"), -1);
}
