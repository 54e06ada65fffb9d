// SPDX-License-Identifier: MIT
// Progress: one redrawn line on a terminal, a line per tenth elsewhere.

#include "ProgressBar.h"

#include <QList>
#include <QPair>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

// Feeds the updates into a bar of the given style and returns its output.
QString render(ProgressBar::Style style, const QList<QPair<qint64, qint64>>& updates, const QString& note)
{
    char* buffer = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&buffer, &size);
    {
        ProgressBar bar(QStringLiteral("upload"), stream, style);
        for (const auto& update : updates)
            bar.update(update.first, update.second);
        bar.finish(note);
    }
    std::fclose(stream);
    const QString text = QString::fromUtf8(buffer, int(size));
    std::free(buffer);
    return text;
}

} // namespace

TEST(ProgressBar, plainOutputWritesOneLinePerTenth)
{
    QList<QPair<qint64, qint64>> updates;
    for (qint64 done = 0; done <= 1000; done += 7)
        updates.append({done, 1000});
    updates.append({1000, 1000});
    const QString text = render(ProgressBar::Style::Plain, updates, QStringLiteral("done"));
    const QStringList lines = text.split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 12) << text.toStdString(); // 0%..100% and the note
    EXPECT_EQ(lines.first(), "upload 0% (0 B of 1000 B)");
    EXPECT_EQ(lines.at(10), "upload 100% (1000 B of 1000 B)");
    EXPECT_EQ(lines.last(), "upload done");
    EXPECT_FALSE(text.contains('\r'));
}

TEST(ProgressBar, unknownTotalIsReportedOnceInPlainOutput)
{
    const QString text = render(ProgressBar::Style::Plain, {{10, 0}, {20, 0}, {30, -1}}, QString());
    EXPECT_EQ(text, "upload 10 B so far\n");
}

TEST(ProgressBar, liveOutputRedrawsOneLine)
{
    const QString text = render(ProgressBar::Style::Live, {{0, 2048}, {2048, 2048}}, QStringLiteral("done"));
    EXPECT_TRUE(text.startsWith('\r'));
    EXPECT_EQ(text.count('\n'), 1) << text.toStdString();
    EXPECT_TRUE(text.contains("100% 2.0 KiB of 2.0 KiB")) << text.toStdString();
    EXPECT_TRUE(text.endsWith(" done\n"));
}

TEST(ProgressBar, liveLineShowsTheFraction)
{
    struct Case {
        qint64 done, total;
        const char* expected;
    };
    const QList<Case> cases{
        {0, 100, "x [          ]   0% 0 B of 100 B"},
        {50, 100, "x [#####     ]  50% 50 B of 100 B"},
        {150, 100, "x [##########] 100% 150 B of 100 B"}, // more than announced: capped bar
        {5 * 1024 * 1024, 0, "x 5.0 MiB"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ProgressBar::liveLine("x", c.done, c.total, 10), QString::fromLatin1(c.expected));
}

TEST(ProgressBar, sizesUseTheLargestUnitBelow1024)
{
    const QList<QPair<qint64, const char*>> cases{
        {0, "0 B"},           {1023, "1023 B"},          {1024, "1.0 KiB"},
        {1048500, "1023.9 KiB"}, {1048560, "1.0 MiB"},  {1048576, "1.0 MiB"},       {10LL << 30, "10.0 GiB"},
        {(1LL << 20) - 1024 * 60, "964.0 KiB"}, {3LL << 40, "3.0 TiB"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ProgressBar::formatBytes(c.first), QString::fromLatin1(c.second)) << c.first;
}

// The rate is the average since the first update, shown once half a second
// has passed; the time left follows from it.
TEST(ProgressBar, rateAndTimeLeftFollowTheClock)
{
    char* buffer = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&buffer, &size);
    {
        qint64 now = 0;
        ProgressBar bar(QStringLiteral("pkg"), stream, ProgressBar::Style::Plain);
        bar.setClock([&now] { return now; });
        const qint64 total = 10 << 20;
        const QList<QPair<qint64, qint64>> steps{// (ms, bytes)
                                                 {0, 0}, {400, 1 << 20}, {1000, 2 << 20}, {2000, 4 << 20}, {5000, total}};
        for (const auto& step : steps) {
            now = step.first;
            bar.update(step.second, total);
        }
    }
    std::fclose(stream);
    const QStringList lines = QString::fromUtf8(buffer, int(size)).split('\n', Qt::SkipEmptyParts);
    std::free(buffer);
    ASSERT_EQ(lines.size(), 5);
    EXPECT_EQ(lines.at(0), "pkg 0% (0 B of 10.0 MiB)");
    EXPECT_EQ(lines.at(1), "pkg 10% (1.0 MiB of 10.0 MiB)"); // 0.4 s: too early for a rate
    EXPECT_EQ(lines.at(2), "pkg 20% (2.0 MiB of 10.0 MiB, 2.0 MiB/s, 4 s left)");
    EXPECT_EQ(lines.at(3), "pkg 40% (4.0 MiB of 10.0 MiB, 2.0 MiB/s, 3 s left)");
    EXPECT_EQ(lines.at(4), "pkg 100% (10.0 MiB of 10.0 MiB, 2.0 MiB/s)");
}

TEST(ProgressBar, rateTextAndDurations)
{
    EXPECT_EQ(ProgressBar::rateText(-1, 0, 100), "");
    EXPECT_EQ(ProgressBar::rateText(0, 10, 100), ", 0 B/s, stalled");
    EXPECT_EQ(ProgressBar::rateText(512, 10, 0), ", 512 B/s"); // total unknown: no time left
    EXPECT_EQ(ProgressBar::liveLine("x", 50, 100, 10, 10), "x [#####     ]  50% 50 B of 100 B, 10 B/s, 5 s left");
    const QList<QPair<qint64, const char*>> durations{
        {0, "0 s"}, {59, "59 s"}, {60, "1 min 00 s"}, {125, "2 min 05 s"}, {3599, "59 min 59 s"}, {3720, "1 h 02 min"}};
    for (const auto& d : durations)
        EXPECT_EQ(ProgressBar::formatDuration(d.first), QString::fromLatin1(d.second));
}
