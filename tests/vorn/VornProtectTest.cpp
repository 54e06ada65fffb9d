// SPDX-License-Identifier: MIT
// vorn protect/unprotect: strings, JSON files and files round-trip through
// the helper's protected-data calls; failures get their codes.

#include "TestFiles.h"
#include "VornProcess.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using VornTest::writeFile;

#if VORN_CLI_PROTECT

TEST(VornProtect, stringsRoundTripWithTheBuiltInKeyOnly)
{
    const QStringList texts{"x", "exactly sixteen!", "héllo wörld, ünïcode ✓", QString(100, 'z')};
    for (const QString& text : texts) {
        SCOPED_TRACE(text.toStdString());
        const VornRun protect = runVorn({"--json", "protect", text});
        ASSERT_EQ(protect.exitStatus, 0) << describe(protect);
        const QString protectedText = jsonOf(protect).value("result").toObject().value("protected").toString();
        ASSERT_FALSE(protectedText.isEmpty());
        EXPECT_NE(protectedText, text);

        const VornRun restore = runVorn({"--json", "unprotect", protectedText});
        EXPECT_EQ(restore.exitStatus, 0) << describe(restore);
        EXPECT_EQ(jsonOf(restore).value("result").toObject().value("text").toString(), text);

        const VornRun wrongKey = runVorn({"--json", "unprotect", protectedText, "--key", "0123456789abcdef"});
        EXPECT_EQ(wrongKey.exitStatus, 0) << describe(wrongKey); // the helper cannot tell
        EXPECT_NE(jsonOf(wrongKey).value("result").toObject().value("text").toString(), text);
    }
}

TEST(VornProtect, jsonFileToProtectedFileAndBack)
{
    QTemporaryDir dir;
    const QString source = dir.filePath("settings.json");
    const QString target = dir.filePath("settings.protected");
    ASSERT_TRUE(writeFile(source, R"({"device": "VS2024000123", "exposure": 12, "tags": ["a", "b"]})"));

    const VornRun protect = runVorn({"protect", "--json-file", source, "--out", target});
    ASSERT_EQ(protect.exitStatus, 0) << describe(protect);
    ASSERT_TRUE(QFile::exists(target));

    const VornRun restore = runVorn({"--json", "unprotect", "--file", target});
    ASSERT_EQ(restore.exitStatus, 0) << describe(restore);
    const QJsonObject restored = jsonOf(restore).value("result").toObject().value("json").toObject();
    EXPECT_EQ(restored, QJsonDocument::fromJson(R"({"device": "VS2024000123", "exposure": 12, "tags": ["a", "b"]})")
                            .object());
}

TEST(VornProtect, failuresHaveTheirCodes)
{
    QTemporaryDir dir;
    const QString empty = dir.filePath("empty.txt");
    const QString notObject = dir.filePath("list.json");
    ASSERT_TRUE(writeFile(empty, ""));
    ASSERT_TRUE(writeFile(notObject, "[1, 2]"));
    struct Case {
        const char* name;
        QStringList args;
        int exitStatus;
    };
    const QList<Case> cases{
        {"empty text protects to nothing", {"protect", "--file", empty}, 8},
        {"output file in a missing folder", {"protect", "x", "--out", dir.filePath("missing/out")}, 8},
        {"JSON file that holds no object", {"protect", "--json-file", notObject}, 65},
        {"two sources at once", {"protect", "x", "--file", empty}, 64},
        {"no source", {"protect"}, 64},
        {"missing input file", {"unprotect", "--file", dir.filePath("none")}, 64},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const VornRun run = runVorn(c.args);
        EXPECT_EQ(run.exitStatus, c.exitStatus) << describe(run);
    }
    EXPECT_FALSE(QFile::exists(dir.filePath("missing/out")));
}

#else

TEST(VornProtect, saysItIsNotInThisBuild)
{
    const VornRun run = runVorn({"protect", "x"});
    EXPECT_EQ(run.exitStatus, 78) << describe(run);
    EXPECT_TRUE(run.err.contains("not available in this build")) << describe(run);
}

#endif
