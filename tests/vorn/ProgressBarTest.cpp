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
    EXPECT_TRUE(text.contains("100% 2.0 KB of 2.0 KB")) << text.toStdString();
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
        {5 * 1024 * 1024, 0, "x 5.0 MB"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ProgressBar::liveLine("x", c.done, c.total, 10), QString::fromLatin1(c.expected));
}

TEST(ProgressBar, sizesUseTheLargestUnitBelow1024)
{
    const QList<QPair<qint64, const char*>> cases{
        {0, "0 B"},           {1023, "1023 B"},          {1024, "1.0 KB"},
        {1048500, "1023.9 KB"}, {1048560, "1.0 MB"},  {1048576, "1.0 MB"},       {10LL << 30, "10.0 GB"},
        {(1LL << 20) - 1024 * 60, "964.0 KB"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ProgressBar::formatBytes(c.first), QString::fromLatin1(c.second)) << c.first;
}
