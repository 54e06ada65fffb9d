// SPDX-License-Identifier: MIT
// Command-line fields become the maps a request carries.

#include "ArgumentMaps.h"
#include "TestFiles.h"

#include <QJsonValue>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct Case {
    const char* name;
    std::vector<std::string> fields;
    QVariantMap expected;
    const char* errorHas; // nullptr: must parse
};

} // namespace

TEST(ArgumentMaps, fieldsParseToTheirTypesOrNameTheirFault)
{
    const QList<Case> cases{
        {"plain strings stay strings, even numeric ones", {"password=123456", "account=a@b"},
         {{"password", "123456"}, {"account", "a@b"}}, nullptr},
        {"typed values", {"id:=1001", "ok:=true", "list:=[\"a\",1]", "nothing:=null"},
         {{"id", 1001}, {"ok", true}, {"list", QVariantList{"a", 1}}, {"nothing", QJsonValue(QJsonValue::Null).toVariant()}}, nullptr},
        {"value may contain '=' and ':='", {"q=a=b", "r=x:=y"}, {{"q", "a=b"}, {"r", "x:=y"}}, nullptr},
        {"empty value is an empty string", {"k="}, {{"k", ""}}, nullptr},
        {"JSON object merges", {"a=1", "{\"b\": 2, \"a\": \"x\"}"}, {{"a", "x"}, {"b", 2}}, nullptr},
        {"later field wins", {"a=1", "a=2"}, {{"a", "2"}}, nullptr},
        {"nested object", {"o:={\"k\": [1, 2]}"}, {{"o", QVariantMap{{"k", QVariantList{1, 2}}}}}, nullptr},
        {"no separator", {"account"}, {}, "is not key=value"},
        {"empty key", {"=value"}, {}, "is not key=value"},
        {"empty typed key", {":=1"}, {}, "empty key"},
        {"bad typed value", {"n:=nope"}, {}, "is not JSON"},
        {"two typed values", {"n:=1,2"}, {}, "is not JSON"},
        {"object that is not JSON", {"{not json"}, {}, "not valid JSON"},
        {"array where an object belongs", {"[1,2]"}, {}, "is not key=value"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const ArgumentMaps::Parsed parsed = ArgumentMaps::parse(c.fields);
        if (c.errorHas) {
            EXPECT_FALSE(parsed.ok());
            EXPECT_TRUE(parsed.error.contains(QString::fromUtf8(c.errorHas))) << parsed.error.toStdString();
            continue;
        }
        ASSERT_TRUE(parsed.ok()) << parsed.error.toStdString();
        EXPECT_EQ(parsed.map.keys(), c.expected.keys());
        for (const QString& key : c.expected.keys()) {
            // QVariant compares 1001 (int) and 1001.0 (double) as equal,
            // which is what JSON numbers are; the types of strings matter.
            EXPECT_EQ(parsed.map.value(key), c.expected.value(key)) << key.toStdString();
            if (c.expected.value(key).userType() == QMetaType::QString) {
                EXPECT_EQ(parsed.map.value(key).userType(), QMetaType::QString) << key.toStdString();
            }
        }
    }
}

TEST(ArgumentMaps, fileFieldsMergeOrReportTheFile)
{
    QTemporaryDir dir;
    const QString good = dir.filePath("body.json");
    ASSERT_TRUE(VornTest::writeFile(good, R"({"userID": 1001, "sn": "VS2024000123"})"));

    const auto parsed = ArgumentMaps::parse({"@" + good.toStdString(), "sn=other"});
    ASSERT_TRUE(parsed.ok()) << parsed.error.toStdString();
    EXPECT_EQ(parsed.map.value("userID").toInt(), 1001);
    EXPECT_EQ(parsed.map.value("sn").toString(), "other");

    const auto missing = ArgumentMaps::parse({"@" + dir.filePath("missing.json").toStdString()});
    EXPECT_FALSE(missing.ok());
    EXPECT_TRUE(missing.fileMissing);
    EXPECT_TRUE(missing.error.contains("missing.json"));
}
