// SPDX-License-Identifier: MIT
// What vorn prints: the human headline and payload, the one JSON document,
// and refusals in both forms.

#include "Output.h"
#include "ReplyStatus.h"
#include "ResultCodes.h"

#include <NubraCommon.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace {

struct Captured {
    QString out;
    QString err;
};

Captured capture(Output::Format format, const std::function<void(Output&)>& print)
{
    char* outBuffer = nullptr;
    char* errBuffer = nullptr;
    size_t outSize = 0;
    size_t errSize = 0;
    FILE* out = open_memstream(&outBuffer, &outSize);
    FILE* err = open_memstream(&errBuffer, &errSize);
    {
        Output output(format, out, err);
        print(output);
    }
    std::fclose(out);
    std::fclose(err);
    Captured captured{QString::fromUtf8(outBuffer, int(outSize)), QString::fromUtf8(errBuffer, int(errSize))};
    std::free(outBuffer);
    std::free(errBuffer);
    return captured;
}

} // namespace

TEST(Output, humanAnswerNamesTheCodeAndIndentsThePayload)
{
    const Captured ok = capture(Output::Format::Human, [](Output& out) {
        out.answer("post userLogin", 0, QVariantMap{{"token", "abc"}}, {{"interface", "UserLogin (userLogin)"}});
    });
    EXPECT_EQ(ok.out, "post userLogin: Success (0)\ninterface: UserLogin (userLogin)\n{\n    \"token\": \"abc\"\n}\n");
    EXPECT_TRUE(ok.err.isEmpty());

    const Captured failed = capture(Output::Format::Human, [](Output& out) { out.answer("get x", 7, QVariantMap()); });
    EXPECT_EQ(failed.out, "get x: TransportError (7) - the request failed on the way (network or protocol)\n");
}

TEST(Output, jsonAnswerIsOneParsableObjectPerCall)
{
    struct Case {
        QVariant payload;
        int code;
    };
    const QList<Case> cases{{QVariantMap{{"a", QVariantList{1, "two"}}}, 0},
                            {QVariant(QString("plain")), 6},
                            {QVariant(), 1},
                            {QVariantList{1, 2}, 12}};
    for (const Case& c : cases) {
        const Captured captured =
            capture(Output::Format::Json, [&](Output& out) { out.answer("op", c.code, c.payload, {{"extra", 5}}); });
        ASSERT_EQ(captured.out.count('\n'), 1) << captured.out.toStdString();
        const QJsonObject object = QJsonDocument::fromJson(captured.out.toUtf8()).object();
        EXPECT_EQ(object.value("operation").toString(), "op");
        EXPECT_EQ(object.value("code").toInt(-1), c.code);
        EXPECT_EQ(object.value("codeName").toString(), ResultCodes::name(c.code));
        EXPECT_EQ(object.value("extra").toInt(), 5);
        EXPECT_EQ(object.value("result").toVariant(), QJsonValue::fromVariant(c.payload).toVariant());
    }
}

TEST(Output, refusalsGoToStderrAndInJsonAlsoToStdout)
{
    const Captured human = capture(Output::Format::Human, [](Output& out) { EXPECT_EQ(out.fail(69, "no cloud"), 69); });
    EXPECT_TRUE(human.out.isEmpty());
    EXPECT_EQ(human.err, "vorn: no cloud\n");

    const Captured json = capture(Output::Format::Json, [](Output& out) {
        out.note("not for scripts");
        out.fail(64, "bad \"field\"");
    });
    EXPECT_EQ(json.err, "vorn: bad \"field\"\n");
    const QJsonObject object = QJsonDocument::fromJson(json.out.toUtf8()).object();
    EXPECT_EQ(object.value("error").toString(), "bad \"field\"");
    EXPECT_EQ(object.value("exitStatus").toInt(), 64);
}

TEST(Output, scalarsAreWrittenAsJsonValues)
{
    EXPECT_EQ(Output::toJsonText(QVariant(QString("a\"b")), false), "\"a\\\"b\"");
    EXPECT_EQ(Output::toJsonText(QVariant(42), false), "42");
    EXPECT_EQ(Output::toJsonText(QVariant(true), false), "true");
    EXPECT_EQ(Output::toJsonText(QVariant(), false), "null");
}

TEST(ReplyStatus, theReplyMapDecidesTheCode)
{
    struct Case {
        QVariantMap reply;
        int code;
    };
    const QList<Case> cases{
        {{}, NubraCommon::RequestRejected},
        {{{"status", "success"}, {"result", QVariantMap{}}}, NubraCommon::Success},
        {{{"status", "Success"}}, NubraCommon::ResponseFailed}, // compared exactly, as the helper does
        {{{"status", "failure"}, {"message", "no"}}, NubraCommon::ResponseFailed},
        {{{"result", 1}}, NubraCommon::ResponseFailed},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ReplyStatus::codeOf(c.reply), c.code) << QJsonDocument::fromVariant(c.reply).toJson().toStdString();
}
