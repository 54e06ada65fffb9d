// SPDX-License-Identifier: MIT
// Finding one's way: suggestions for mistyped names, shell completion that
// bash really runs, the man page the build wrote, and "-" for standard input.

#include "VornProcess.h"

#include <QFile>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(VornHelp, mistypedNamesGetSuggestions)
{
    struct Case {
        const char* name;
        QStringList args;
        int exitStatus;
        const char* stderrHas;
    };
    const QList<Case> cases{
        {"swapped letters", {"lgoin"}, 64, "unknown command 'lgoin' (did you mean 'login'?)"},
        {"after a global option with a value", {"--config", "x.json", "intefaces"}, 64, "did you mean 'interfaces'?"},
        {"nested command", {"upgrade", "chek", "--model", "VS-200"}, 64, "unknown command 'upgrade chek' (did you mean 'check'?)"},
        {"nothing close", {"zzzzzz"}, 64, "unknown command 'zzzzzz'; 'vorn --help'"},
        {"request name", {"post", "GetUserProfil"}, 4, "did you mean 'GetUserProfile'"},
#if VORN_CLI_ACCOUNT
        {"request name, other case", {"account", "captha"}, 4, "did you mean 'Captcha'"},
#endif
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const VornRun run = runVorn(c.args);
        EXPECT_EQ(run.exitStatus, c.exitStatus) << describe(run);
        EXPECT_TRUE(run.err.contains(QString::fromUtf8(c.stderrHas))) << describe(run);
    }
    // The same message is the JSON document's error.
    const VornRun json = runVorn({"--json", "lgoin"});
    EXPECT_TRUE(jsonOf(json).value("error").toString().contains("did you mean 'login'")) << describe(json);
}

TEST(VornHelp, bashCompletionOffersCommandsOptionsAndRequestNames)
{
    const QString bash = QStandardPaths::findExecutable("bash");
    if (bash.isEmpty())
        GTEST_SKIP() << "bash unavailable";
    QTemporaryDir dir;
    const VornRun script = runVorn({"completion", "bash"});
    ASSERT_EQ(script.exitStatus, 0) << describe(script);
    const QString file = dir.filePath("vorn.bash");
    {
        QFile out(file);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(script.out.toUtf8());
    }
    struct Case {
        QString line; // the words typed so far, the last one being completed
        QStringList offered;
        QStringList notOffered;
    };
    const QList<Case> cases{
        {"vorn lo", {"login", "logout"}, {"post"}},
        {"vorn upgrade ch", {"check"}, {"login"}},
        {"vorn --json upgrade download --", {"--model", "--to", "--dir"}, {"--password-stdin"}},
        {"vorn post GetUserP", {"GetUserProfile"}, {}},
        {"vorn login --pass", {"--password-stdin"}, {}},
        {"vorn completion ", {"bash", "zsh"}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line.toStdString());
        QStringList words = c.line.split(' ');
        const QString program = QStringLiteral("source '%1'; COMP_WORDS=(%2); COMP_CWORD=%3; _vorn; "
                                               "printf '%s\\n' \"${COMPREPLY[@]}\"")
                                    .arg(file, c.line.endsWith(' ') ? c.line + "''" : c.line)
                                    .arg(words.size() - 1);
        QProcess shell;
        shell.start(bash, {"--norc", "-c", program});
        ASSERT_TRUE(shell.waitForFinished(20000));
        const QStringList offered = QString::fromUtf8(shell.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        for (const QString& word : c.offered)
            EXPECT_TRUE(offered.contains(word)) << word.toStdString() << " in " << offered.join(' ').toStdString();
        for (const QString& word : c.notOffered)
            EXPECT_FALSE(offered.contains(word)) << word.toStdString();
    }
    const VornRun zsh = runVorn({"completion", "zsh"});
    EXPECT_TRUE(zsh.out.startsWith("#compdef vorn")) << describe(zsh);
    EXPECT_EQ(runVorn({"completion", "fish"}).exitStatus, 64);
}

TEST(VornHelp, manPageFromTheBuildCoversEveryCommandAndOption)
{
    QFile page(QStringLiteral(VORN_MAN_PAGE));
    ASSERT_TRUE(page.open(QIODevice::ReadOnly)) << VORN_MAN_PAGE;
    const QString text = QString::fromUtf8(page.readAll());
    EXPECT_TRUE(text.startsWith(".TH VORN 1")) << text.left(200).toStdString();
    for (const char* expected : {".SS \"login\"", ".SS \"logout\"", ".SS \"upgrade exists\"", ".SS \"completion\"",
                                 "\\-\\-password\\-stdin", "\\-\\-json", ".SH \"EXIT STATUS\"", "PackageExists",
                                 "vorn/token"})
        EXPECT_TRUE(text.contains(QString::fromUtf8(expected))) << expected;
    EXPECT_FALSE(text.contains("help\\-man")) << "the hidden generator is not a command to document";
    // The page is what vorn writes now, not a stale copy.
    EXPECT_EQ(runVorn({"help-man"}).out, text);
    // Every line that starts with a dot is a request roff knows.
    // groff, when installed, formats it without a warning.
    const QString groff = QStandardPaths::findExecutable("groff");
    if (!groff.isEmpty()) {
        QProcess format;
        format.start(groff, {"-man", "-Tutf8", "-ww", "-z", QStringLiteral(VORN_MAN_PAGE)});
        ASSERT_TRUE(format.waitForFinished(20000));
        EXPECT_EQ(format.exitCode(), 0);
        EXPECT_EQ(format.readAllStandardError(), QByteArray());
    }
    const QRegularExpression known("^\\.(TH|SH|SS|PP|TP|nf|fi)( |$)");
    for (const QString& line : text.split('\n')) {
        if (line.startsWith('.')) {
            EXPECT_TRUE(known.match(line).hasMatch()) << line.toStdString();
        }
    }
}

TEST(VornHelp, dashReadsStandardInput)
{
#if VORN_CLI_PROTECT
    const VornRun protect = runVorn({"--json", "protect", "-"}, {}, 60000, "from a pipe\n");
    ASSERT_EQ(protect.exitStatus, 0) << describe(protect);
    const QString secret = jsonOf(protect).value("result").toObject().value("protected").toString();
    ASSERT_FALSE(secret.isEmpty());
    const VornRun restored = runVorn({"--json", "unprotect", "-"}, {}, 60000, secret.toUtf8() + "\n");
    EXPECT_EQ(jsonOf(restored).value("result").toObject().value("text").toString(), "from a pipe") << describe(restored);
#endif

    // @- reads a request body; a second "-" finds standard input used up.
    const VornRun body = runVorn({"--json", "post", "UserLogin", "@-"}, {}, 60000,
                                 R"({"account": "demo@vorn.example", "password": "scan3d!"})");
    EXPECT_EQ(body.exitStatus, 0) << describe(body);
    const VornRun twice = runVorn({"post", "UserLogin", "@-", "@-"}, {}, 60000, "{}");
    EXPECT_EQ(twice.exitStatus, 66) << describe(twice);
    EXPECT_TRUE(twice.err.contains("only once")) << describe(twice);
}
