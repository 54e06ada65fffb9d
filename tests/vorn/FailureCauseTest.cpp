// SPDX-License-Identifier: MIT
// The client's failure records become one readable line and the same
// fields in JSON; vorn's own cause wins, the first record is kept.

#include "FailureCause.h"

#include <Nubra/Reply.h>

#include <QLoggingCategory>

#include <gtest/gtest.h>

TEST(FailureCause, recordsReadAsOneLine)
{
    struct Case {
        const char* record;
        bool parses;
        const char* line;
    };
    const Case cases[] = {
        {R"({"request":"userLogin","error":0,"errorName":"NoError","message":"wrong account or password","httpStatus":401})",
         true, R"(HTTP 401 "wrong account or password")"},
        {R"({"request":"x","error":200,"errorName":"ConnectionRefused","message":"Failed to connect"})", true,
         "ConnectionRefused (200): Failed to connect"},
        {R"({"request":"x","error":401,"errorName":"HttpError","message":"no software for model VS-9","httpStatus":404})",
         true, "HttpError (401), HTTP 404: no software for model VS-9"},
        {R"({"request":"x","error":0,"errorName":"NoError","message":""})", true, "\"(no message)\""},
        {"not json", false, ""},
        {R"({"error":200})", false, ""}, // no request name
        {R"(["request"])", false, ""},
    };
    for (const Case& c : cases) {
        FailureCause::Cause cause;
        EXPECT_EQ(FailureCause::parseRecord(QString::fromUtf8(c.record), &cause), c.parses) << c.record;
        EXPECT_EQ(FailureCause::describe(cause), QString::fromUtf8(c.line)) << c.record;
    }
}

TEST(FailureCause, firstRecordOfTheOutcomeCategoryCountsAndOwnCauseWins)
{
    FailureCause::clear();
    const QString first = R"({"request":"a","error":202,"errorName":"TimedOut","message":"first"})";
    const QString second = R"({"request":"b","error":200,"errorName":"ConnectionRefused","message":"second"})";
    EXPECT_FALSE(FailureCause::take("nubra.http", first)); // another category is left alone
    EXPECT_FALSE(FailureCause::current().known());
    EXPECT_TRUE(FailureCause::take(Nubra::Reply::outcomeCategory, first));
    EXPECT_TRUE(FailureCause::take(Nubra::Reply::outcomeCategory, second));
    EXPECT_EQ(FailureCause::current().message, "first");
    const QVariantMap map = FailureCause::toMap(FailureCause::current());
    EXPECT_EQ(map.value("clientErrorName").toString(), "TimedOut");
    EXPECT_EQ(map.value("text").toString(), "TimedOut (202): first");
    EXPECT_FALSE(map.contains("httpStatus"));

    FailureCause::set("vorn knows better");
    EXPECT_EQ(FailureCause::describe(FailureCause::current()), "vorn knows better");
    EXPECT_EQ(FailureCause::toMap(FailureCause::current()), (QVariantMap{{"text", "vorn knows better"}}));
    FailureCause::clear();
    EXPECT_FALSE(FailureCause::current().known());
}

// enable() turns on exactly the client's outcome records.
TEST(FailureCause, enableTurnsOnTheClientsRecords)
{
    QLoggingCategory outcome(Nubra::Reply::outcomeCategory, QtWarningMsg);
    FailureCause::enable();
    QLoggingCategory after(Nubra::Reply::outcomeCategory, QtWarningMsg);
    EXPECT_TRUE(after.isInfoEnabled());
    EXPECT_FALSE(after.isDebugEnabled());
    QLoggingCategory::setFilterRules(QString());
}
