// SPDX-License-Identifier: MIT
// The client's "startDownload" against a private dev cloud: destination
// rules, progress, refusals, stall, pause and resume. A cut transfer and a
// file changed between two starts are tested through the helper, on the same
// resumable download, in UpgradeEndToEndTest.

#include "PrivateCloud.h"
#include "TestFiles.h"
#include "Waiting.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// The private cloud of this binary.
const bool g_cloud = VornTest::usePrivateCloud();

using VornTest::sha256OfFile;

VornTest::CloudAdmin& admin() { return VornTest::privateCloudAdmin(); }

struct RemoteFile {
    QString name, url, sha256;
    qint64 size = 0;
};

RemoteFile remote(const QString& name)
{
    for (const QJsonValue& f : admin().call("GET", "/devcloud/files").value("result").toObject().value("files").toArray())
        if (f["name"].toString() == name)
            return {name, f["url"].toString(), f["sha256"].toString(), qint64(f["size"].toDouble())};
    return {};
}

struct Outcome {
    QVariantMap finished;
    QList<Nubra::Error::ErrorCode> errors;
    QList<QVariantList> progressOfOne;
    int finishedCount = 0;
};

class FileDownload : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(folder.isValid());
        admin().clearFaults();
        ASSERT_TRUE(VornTest::loadConfig(manager, VornTest::privateCloud().configPath()));
    }

    Nubra::Reply* start(const QString& url, const QString& path)
    {
        return manager.request("startDownload", {{"urls", url}, {"path", path}}, {});
    }

    // Waits for finished() (at most 30 s) and collects what the reply said.
    Outcome run(Nubra::Reply* reply, std::function<void(Nubra::Reply*, qint64)> onProgress = {})
    {
        Outcome outcome;
        QObject::connect(reply, &Nubra::Reply::finished, reply, [&](const QVariantMap& map) {
            outcome.finished = map;
            ++outcome.finishedCount;
        });
        QObject::connect(reply, &Nubra::Reply::errorOccurred, reply,
                         [&](Nubra::Error::ErrorCode code) { outcome.errors.append(code); });
        QObject::connect(reply, &Nubra::Reply::downloadProgressOfOne, reply,
                         [&](const QString& name, qint64 received, qint64 total) {
                             outcome.progressOfOne.append({name, received, total});
                             if (onProgress)
                                 onProgress(reply, received);
                         });
        VornTest::waitUntil([&] { return outcome.finishedCount > 0; }, 30000);
        // Anything after finished() would be a second finish.
        QCoreApplication::processEvents();
        reply->deleteLater();
        return outcome;
    }

    Nubra::Manager manager;
    QTemporaryDir folder;
};

TEST_F(FileDownload, pathNamesTheFileOrAFolderThatKeepsTheUrlName)
{
    const RemoteFile manual = remote("scanner-manual.pdf");
    const RemoteFile empty = remote("empty.txt");
    ASSERT_GT(manual.size, 0);
    QDir(folder.path()).mkpath("existing");
    struct Case {
        const char* label;
        RemoteFile file;
        QString path;
        QString expected;
    };
    const std::vector<Case> cases = {
        {"folder with slash", manual, folder.path() + "/", folder.path() + "/scanner-manual.pdf"},
        {"existing folder", manual, folder.path() + "/existing", folder.path() + "/existing/scanner-manual.pdf"},
        {"new file in new folders", manual, folder.path() + "/a/b/manual-copy.pdf", folder.path() + "/a/b/manual-copy.pdf"},
        {"empty file", empty, folder.path() + "/empty.txt", folder.path() + "/empty.txt"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        const Outcome outcome = run(start(c.file.url, c.path));
        EXPECT_EQ(outcome.finishedCount, 1);
        EXPECT_EQ(outcome.finished.value("status").toString(), "success");
        EXPECT_TRUE(outcome.errors.isEmpty());
        EXPECT_EQ(outcome.finished["result"].toMap().value("path").toString(), c.expected);
        EXPECT_EQ(sha256OfFile(c.expected), c.file.sha256);
        EXPECT_FALSE(QFileInfo::exists(c.expected + ".part"));
        EXPECT_FALSE(QFileInfo::exists(c.expected + ".part.json"));
        if (c.file.size > 0) {
            ASSERT_FALSE(outcome.progressOfOne.isEmpty());
            EXPECT_EQ(outcome.progressOfOne.last(), (QVariantList{c.file.url, c.file.size, c.file.size}));
        }
    }
}

TEST_F(FileDownload, badRequestsAreRefusedAtOnce)
{
    const RemoteFile manual = remote("scanner-manual.pdf");
    const std::vector<QVariantMap> records = {
        {{"urls", QStringList{manual.url}}, {"path", folder.path() + "/x"}},
        {{"urls", "ftp://127.0.0.1/x"}, {"path", folder.path() + "/x"}},
        {{"urls", manual.url}, {"path", ""}},
        {{"urls", VornTest::privateCloud().baseUrl() + "/"}, {"path", folder.path() + "/"}}, // no file name to keep
    };
    for (const QVariantMap& record : records) {
        Nubra::Reply* reply = manager.request("startDownload", record, {});
        EXPECT_EQ(reply->status(), Nubra::Error::InvalidArgument);
        const Outcome outcome = run(reply);
        EXPECT_EQ(outcome.finishedCount, 1);
        EXPECT_EQ(outcome.errors, QList<Nubra::Error::ErrorCode>{Nubra::Error::InvalidArgument});
    }
    EXPECT_TRUE(QDir(folder.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());
}

TEST_F(FileDownload, silentServerEndsInTimedOutAfterTheStallPeriod)
{
    const RemoteFile board = remote("calibration-board.bin");
    const QString target = folder.path() + "/board.bin";
    ASSERT_FALSE(VornTest::finishOf(manager.setConfigData({{"stallTimeout", 1}}, {})).isEmpty());
    const qint64 sent = 100000;
    admin().armFault("/files/" + board.name, {{"stallAfter", sent}, {"times", 1}});
    const Outcome outcome = run(start(board.url, target));
    EXPECT_EQ(outcome.finishedCount, 1);
    EXPECT_EQ(outcome.errors, QList<Nubra::Error::ErrorCode>{Nubra::Error::TimedOut});
    EXPECT_FALSE(QFileInfo::exists(target));
    EXPECT_EQ(QFileInfo(target + ".part").size(), sent);
}

TEST_F(FileDownload, stopPausesWithStatusPausedAndKeepsThePartialBytes)
{
    const RemoteFile board = remote("calibration-board.bin");
    const QString target = folder.path() + "/board.bin";
    admin().armFault("/files/" + board.name, {{"throttle", 2 * 1024 * 1024}, {"times", 1}});
    bool stopped = false;
    const Outcome paused = run(start(board.url, target), [&](Nubra::Reply* reply, qint64 received) {
        if (!stopped && received >= 512 * 1024) {
            stopped = true;
            emit reply->stop();
        }
    });
    EXPECT_EQ(paused.finishedCount, 1);
    EXPECT_EQ(paused.finished.value("status").toString(), "paused");
    EXPECT_TRUE(paused.errors.isEmpty());
    const qint64 partial = QFileInfo(target + ".part").size();
    EXPECT_GE(partial, 512 * 1024);
    EXPECT_EQ(paused.finished["result"].toMap().value("bytesReceived").toLongLong(), partial);
    EXPECT_FALSE(QFileInfo::exists(target));

    const Outcome resumed = run(start(board.url, target));
    EXPECT_EQ(resumed.finished.value("status").toString(), "success");
    EXPECT_EQ(sha256OfFile(target), board.sha256);
}

TEST_F(FileDownload, aSecondDownloadIntoTheSameFileIsRefusedWhileTheFirstRuns)
{
    const RemoteFile board = remote("calibration-board.bin");
    const QString target = folder.path() + "/board.bin";
    admin().armFault("/files/" + board.name, {{"throttle", 4 * 1024 * 1024}, {"times", 1}});
    Nubra::Reply* first = start(board.url, target);
    Nubra::Reply* second = start(board.url, target);
    EXPECT_EQ(first->status(), 0);
    EXPECT_EQ(second->status(), Nubra::Error::Busy);
    run(second);
    const Outcome outcome = run(first);
    EXPECT_EQ(outcome.finished.value("status").toString(), "success");
    EXPECT_EQ(sha256OfFile(target), board.sha256);
}

} // namespace
