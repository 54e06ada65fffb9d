// SPDX-License-Identifier: MIT
// The upgrade flow end to end: helper -> nubra client -> a private dev cloud
// whose transfers the tests throttle, cut and corrupt.

#include "PrivateCloud.h"
#include "TestFiles.h"
#include "Waiting.h"

#include <VornNubraHelper.h>

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QFileInfo>
#include <QJsonArray>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

namespace {

// The private cloud of this binary: the tests throttle, cut and corrupt its
// transfers.
const bool g_cloud = VornTest::usePrivateCloud();

using VornTest::finishOf;
using VornTest::sha256OfFile;

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }
VornTest::CloudAdmin& admin() { return VornTest::privateCloudAdmin(); }

QString packagePath(const QString& folder, const QString& model, const QString& version)
{
    QString name = model + "-" + version;
    name.replace(' ', '_');
    return folder + "/" + name + ".vpkg";
}

class UpgradeEndToEnd : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(folder.isValid());
        admin().clearFaults();
    }
    void TearDown() override { admin().clearFaults(); }

    void registerModel(const QString& model, const QString& version, const QString& type = "release",
                       const QString& lang = "en")
    {
        ASSERT_EQ(helper()->setSoftwareAutoUpgrade(model, version, type, lang, folder.path()), NubraCommon::Success);
    }

    // Starts a download and pauses it once at least pauseAt bytes are on
    // disk (from inside the download's wait, as a pause button would).
    void startAndPauseAt(const QString& model, const QString& version, qint64 pauseAt)
    {
        bool pauseAsked = false;
        const auto connection = QObject::connect(helper(), &VornNubraHelper::downloadProgress, helper(),
                                                 [&](qint64 received, qint64) {
                                                     if (pauseAsked || received < pauseAt)
                                                         return;
                                                     pauseAsked = true;
                                                     QTimer::singleShot(0, helper(), [] {
                                                         EXPECT_EQ(helper()->pauseDownloadSoftware(),
                                                                   NubraCommon::Success);
                                                     });
                                                 });
        EXPECT_EQ(helper()->startDownloadSoftware(model, version), NubraCommon::Success);
        QObject::disconnect(connection);
        EXPECT_TRUE(pauseAsked);
    }

    // A package as the cloud lists it, and where the helper stores it.
    struct Package {
        QString sha256, url; // url: the cloud's path of the package file
        qint64 size = 0;
        QString target;
    };
    Package package(const QString& model, const QString& version)
    {
        const QJsonObject p = admin().package(model, version);
        return {p.value("sha256").toString(), "/packages/" + p.value("packageName").toString(),
                qint64(p.value("packageSize").toDouble()), packagePath(folder.path(), model, version)};
    }

    QTemporaryDir folder;
};

TEST_F(UpgradeEndToEnd, checkFindsTheNewestVersionTheRegistrationMaySee)
{
    struct Case {
        QString model, current, type, lang;
        bool hasUpgrade;
        QString version;
        QString notesStart;
    };
    const std::vector<Case> cases = {
        {"VS-200", "1.0.0", "release", "de", true, "1.2.0", "Texturaufnahme"},
        {"VS-200", "1.2.0", "beta", "en", true, "1.3.0-beta.1", "Beta: new meshing"},
        {"VS-200", "1.2.0", "release", "en", false, "1.2.0", ""},
        {"VS-300 Pro", "2.0.0", "release", "fr", true, "2.1.0", "Marker-free"}, // unknown language: English
        {"VS-300 Pro", "2.1.0", "release", "zh", false, "2.1.0", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE((c.model + " " + c.current + " " + c.type).toStdString());
        registerModel(c.model, c.current, c.type, c.lang);
        QVariantMap info;
        ASSERT_EQ(helper()->checkSoftwareUpgrade(c.model, info), NubraCommon::Success);
        EXPECT_EQ(info.value("hasUpgrade").toBool(), c.hasUpgrade);
        EXPECT_EQ(info.value("version").toString(), c.version);
        EXPECT_EQ(info.value("currentVersion").toString(), c.current);
        if (c.hasUpgrade) {
            EXPECT_TRUE(info.value("releaseNotes").toString().startsWith(c.notesStart))
                << info.value("releaseNotes").toString().toStdString();
            const Package p = package(c.model, c.version);
            EXPECT_EQ(info.value("sha256").toString(), p.sha256);
            EXPECT_EQ(info.value("packageSize").toLongLong(), p.size);
            EXPECT_EQ(info.value("localPath").toString(), p.target);
        }
    }
    QVariantMap untouched{{"kept", true}};
    EXPECT_EQ(helper()->checkSoftwareUpgrade("VS-999", untouched), NubraCommon::RequestRejected);
    EXPECT_EQ(untouched, (QVariantMap{{"kept", true}}));
}

TEST_F(UpgradeEndToEnd, downloadVerifiesThePackageAndTheExistenceTestSeesItAfterwards)
{
    registerModel("VS-200", "1.0.0");
    const Package p = package("VS-200", "1.1.0");
    const qint64 size = p.size;
    const QString target = p.target;

    QSignalSpy progress(helper(), &VornNubraHelper::downloadProgress);
    EXPECT_EQ(helper()->checkDownloadSoftwareExist("VS-200", "1.1.0"), NubraCommon::Success);
    ASSERT_EQ(progress.count(), 1);
    EXPECT_EQ(progress.takeFirst(), (QVariantList{qint64(0), size}));

    QSignalSpy succeeded(helper(), &VornNubraHelper::downloadSuccess);
    QSignalSpy failed(helper(), &VornNubraHelper::downloadFail);
    EXPECT_EQ(helper()->startDownloadSoftware("VS-200", "1.1.0"), NubraCommon::Success);
    EXPECT_EQ(succeeded.count(), 1);
    EXPECT_EQ(failed.count(), 0);
    ASSERT_FALSE(progress.isEmpty());
    EXPECT_EQ(progress.last(), (QVariantList{size, size}));
    EXPECT_EQ(sha256OfFile(target), p.sha256);
    EXPECT_FALSE(QFileInfo::exists(target + ".part"));
    EXPECT_FALSE(QFileInfo::exists(target + ".part.json"));

    progress.clear();
    EXPECT_EQ(helper()->checkDownloadSoftwareExist("VS-200", "1.1.0"), NubraCommon::PackageExists);
    ASSERT_EQ(progress.count(), 1);
    EXPECT_EQ(progress.first(), (QVariantList{size, size}));
}

// A download paused (from inside its wait, as a pause button would) or cut
// by the cloud keeps its partial bytes; the next start asks for the rest only.
TEST_F(UpgradeEndToEnd, interruptedDownloadResumesWithOnlyTheMissingBytes)
{
    const struct {
        const char* what;
        QString version, installed;
        QJsonObject fault; // on the first request only
        qint64 pauseAt;    // 0: the cut ends the download
    } cases[] = {
        // Slow enough to pause half-way.
        {"paused", "2.1.0", "2.0.0", {{"throttle", 4 * 1024 * 1024}, {"times", 1}}, 1024 * 1024},
        {"cut", "2.0.0", "1.0.0", {{"cutAfter", 300000}, {"times", 1}}, 0},
    };
    const QString model = "VS-300 Pro";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        registerModel(model, c.installed);
        const Package p = package(model, c.version);
        admin().armFault(p.url, c.fault);
        QSignalSpy succeeded(helper(), &VornNubraHelper::downloadSuccess);
        QSignalSpy failed(helper(), &VornNubraHelper::downloadFail);
        if (c.pauseAt > 0)
            startAndPauseAt(model, c.version, c.pauseAt);
        else
            EXPECT_EQ(helper()->startDownloadSoftware(model, c.version), NubraCommon::Success);
        // The pause ends the wait with downloadSuccess although the package
        // is not complete: the helper's flag starts true on purpose.
        EXPECT_EQ(succeeded.count(), c.pauseAt > 0 ? 1 : 0);
        EXPECT_EQ(failed.count(), c.pauseAt > 0 ? 0 : 1);
        EXPECT_FALSE(QFileInfo::exists(p.target));
        const qint64 partial = QFileInfo(p.target + ".part").size();
        if (c.pauseAt > 0) {
            EXPECT_GE(partial, c.pauseAt);
            EXPECT_LT(partial, p.size);
        } else {
            EXPECT_EQ(partial, c.fault.value("cutAfter").toInt());
        }

        // Meanwhile the existence test reports the partial bytes.
        QSignalSpy progress(helper(), &VornNubraHelper::downloadProgress);
        EXPECT_EQ(helper()->checkDownloadSoftwareExist(model, c.version), NubraCommon::PackageExists);
        ASSERT_EQ(progress.count(), 1);
        EXPECT_EQ(progress.first(), (QVariantList{partial, p.size}));

        const qint64 rangeBytesBefore = admin().stat(p.url, "rangeBytesServed");
        const qint64 rangeRequestsBefore = admin().stat(p.url, "rangeRequests");
        succeeded.clear();
        EXPECT_EQ(helper()->startDownloadSoftware(model, c.version), NubraCommon::Success);
        EXPECT_EQ(succeeded.count(), 1);
        EXPECT_EQ(sha256OfFile(p.target), p.sha256);
        EXPECT_EQ(admin().stat(p.url, "rangeRequests") - rangeRequestsBefore, 1);
        EXPECT_EQ(admin().stat(p.url, "rangeBytesServed") - rangeBytesBefore, p.size - partial);
    }
}

TEST_F(UpgradeEndToEnd, corruptedPackageEndsInDownloadFailAndLeavesNoCompleteLookingFile)
{
    const QString model = "VS-200";
    const QString version = "1.3.0-beta.1";
    registerModel(model, "1.2.0", "beta");
    const Package p = package(model, version);
    const QString url = p.url, target = p.target;

    struct Case {
        const char* label;
        std::function<void()> corrupt;
        std::function<void()> repair;
    };
    const std::vector<Case> cases = {
        {"bytes flipped on the server's disk",
         [&] { admin().call("POST", "/devcloud/upgrade/corrupt", {{"modelCode", model}, {"version", version}}); },
         // Flipping again restores the original byte.
         [&] { admin().call("POST", "/devcloud/upgrade/corrupt", {{"modelCode", model}, {"version", version}}); }},
        {"byte flipped in transit", [&] { admin().armFault(url, {{"corrupt", true}, {"times", 1}}); }, [] {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        c.corrupt();
        QSignalSpy succeeded(helper(), &VornNubraHelper::downloadSuccess);
        QSignalSpy failed(helper(), &VornNubraHelper::downloadFail);
        EXPECT_EQ(helper()->startDownloadSoftware(model, version), NubraCommon::Success);
        EXPECT_EQ(failed.count(), 1);
        EXPECT_EQ(succeeded.count(), 0);
        EXPECT_FALSE(QFileInfo::exists(target));
        EXPECT_FALSE(QFileInfo::exists(target + ".part"));
        EXPECT_EQ(helper()->checkDownloadSoftwareExist(model, version), NubraCommon::Success);

        c.repair();
        EXPECT_EQ(helper()->startDownloadSoftware(model, version), NubraCommon::Success);
        EXPECT_EQ(succeeded.count(), 1);
        EXPECT_EQ(sha256OfFile(target), p.sha256);
        QFile::remove(target);
    }
}

TEST_F(UpgradeEndToEnd, packageRepublishedDuringAPauseIsFetchedAnew)
{
    const QString model = "VS-300 Pro";
    const QString version = "2.2.0-beta.1";
    registerModel(model, "2.1.0", "beta");
    const Package before = package(model, version);
    const QString url = before.url, target = before.target;
    admin().armFault(url, {{"throttle", 1024 * 1024}, {"times", 1}});
    startAndPauseAt(model, version, 256 * 1024);
    ASSERT_GT(QFileInfo(target + ".part").size(), 0);

    const QJsonObject after =
        admin().call("POST", "/devcloud/upgrade/republish", {{"modelCode", model}, {"version", version}})
            .value("result")
            .toObject();
    ASSERT_NE(after.value("sha256").toString(), before.sha256);
    QSignalSpy succeeded(helper(), &VornNubraHelper::downloadSuccess);
    EXPECT_EQ(helper()->startDownloadSoftware(model, version), NubraCommon::Success);
    EXPECT_EQ(succeeded.count(), 1);
    EXPECT_EQ(sha256OfFile(target), after.value("sha256").toString());
}

// The client itself answers an existence request while the package is
// downloading (the helper refuses to ask then).
TEST_F(UpgradeEndToEnd, clientExistenceAnswerDuringARunningDownloadCountsTheBytesOnDisk)
{
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::loadConfig(manager, VornTest::privateCloud().configPath()));
    const QVariantMap model{{"modelCode", "VS-200"}, {"version", "1.0.0"}, {"versionType", "release"},
                            {"langType", "en"},      {"osType", "mac"},    {"maxPatch", 10}};
    ASSERT_EQ(finishOf(manager.request("autoUpgrade:setAutoUpgradeConfig",
                                     {{"VS-200", model}, {"checkInterval", 10}, {"path", folder.path()}}, {}))
                  .value("status"),
              "success");
    const Package p = package("VS-200", "1.2.0");
    const qint64 size = p.size;
    admin().armFault(p.url, {{"throttle", 4 * 1024 * 1024}, {"times", 1}});
    const QVariantMap item{{"modelCode", "VS-200"}, {"version", "1.2.0"}};
    const QVariantMap exist{{"modelCode", "VS-200"}, {"version", "1.2.0"}};

    Nubra::Reply* download = manager.request("autoUpgrade:startDownload", {{"upgrades", QVariantList{item}}}, {});
    ASSERT_EQ(download->status(), 0);
    Nubra::Reply* twice = manager.request("autoUpgrade:startDownload", {{"upgrades", QVariantList{item}}}, {});
    EXPECT_EQ(twice->status(), Nubra::Error::Busy);
    finishOf(twice);

    QVariantMap during;
    qint64 reportedBefore = -1;
    QObject::connect(download, &Nubra::Reply::downloadProgressOfOne, download,
                     [&](const QString&, qint64 received, qint64) {
                         if (reportedBefore >= 0 || received < 2 * 1024 * 1024)
                             return;
                         reportedBefore = received;
                         QTimer::singleShot(0, download, [&] {
                             during = finishOf(manager.request("autoUpgrade:isExist", exist, {}));
                         });
                     });
    const QVariantMap done = finishOf(download);
    EXPECT_EQ(done.value("status"), "success");
    ASSERT_EQ(during.value("status"), "success");
    const QVariantMap duringResult = during.value("result").toMap();
    EXPECT_GE(duringResult.value("bytesReceived").toLongLong(), reportedBefore);
    EXPECT_LT(duringResult.value("bytesReceived").toLongLong(), size);
    EXPECT_EQ(duringResult.value("bytesTotal").toLongLong(), size);
    EXPECT_FALSE(duringResult.value("complete").toBool());

    const QVariantMap after = finishOf(manager.request("autoUpgrade:isExist", exist, {})).value("result").toMap();
    EXPECT_EQ(after.value("bytesReceived").toLongLong(), size);
    EXPECT_EQ(after.value("bytesTotal").toLongLong(), size);
    EXPECT_TRUE(after.value("complete").toBool());
}

TEST_F(UpgradeEndToEnd, generalUpgradeRequestListsTheVersionsOfEachModel)
{
    struct Case {
        QString versionType;
        int maxPtach;
        QStringList vs200, vs300;
    };
    const std::vector<Case> cases = {
        {"release", 2, {"1.1.0", "1.2.0"}, {"2.0.0", "2.1.0"}},
        {"beta", 10, {"1.0.0", "1.1.0", "1.2.0", "1.3.0-beta.1"}, {"2.0.0", "2.1.0", "2.2.0-beta.1"}},
        {"release", 0, {}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE((c.versionType + " " + QString::number(c.maxPtach)).toStdString());
        const QVariantMap body{{"checkModels", QVariantList{"VS-300 Pro"}},
                               {"checkModulars", QVariantList{"texture"}},
                               {"maxPtach", c.maxPtach},
                               {"modelCode", "VS-200"},
                               {"osType", "mac"},
                               {"versionType", c.versionType}};
        QVariantMap result;
        ASSERT_EQ(helper()->post(NubraCommon::Interface::Upgrade, body, result, {}, 10000), NubraCommon::Success);
        const QVariantList models = result.value("models").toList();
        ASSERT_EQ(models.size(), 2);
        for (int i = 0; i < 2; ++i) {
            const QVariantMap model = models[i].toMap();
            EXPECT_EQ(model.value("modelCode").toString(), i == 0 ? "VS-200" : "VS-300 Pro");
            QStringList versions;
            for (const QVariant& v : model.value("versions").toList())
                versions << v.toMap().value("version").toString();
            EXPECT_EQ(versions, i == 0 ? c.vs200 : c.vs300);
        }
        EXPECT_EQ(result.value("modulars").toList(),
                  (QVariantList{QVariantMap{{"name", "texture"}, {"available", false}}}));
    }
}

TEST_F(UpgradeEndToEnd, twoFileDownloadsSideBySide)
{
    const QJsonArray files = admin().call("GET", "/devcloud/files").value("result").toObject().value("files").toArray();
    QMap<QString, QJsonObject> byName;
    for (const QJsonValue& f : files)
        byName.insert(f["name"].toString(), f.toObject());
    const QJsonObject manual = byName.value("scanner-manual.pdf");
    const QJsonObject board = byName.value("calibration-board.bin");
    ASSERT_FALSE(manual.isEmpty());
    ASSERT_FALSE(board.isEmpty());

    // A folder (the file keeps its name) and a file path.
    const QString first = folder.path() + "/scanner-manual.pdf";
    const QString second = folder.path() + "/sub/board.bin";
    EXPECT_EQ(helper()->downloadFile(manual["url"].toString(), folder.path() + "/"), NubraCommon::Success);
    EXPECT_EQ(helper()->downloadFile(board["url"].toString(), second), NubraCommon::Success);
    EXPECT_TRUE(QTest::qWaitFor([&] { return QFileInfo::exists(first) && QFileInfo::exists(second); }, 30000));
    EXPECT_EQ(sha256OfFile(first), manual["sha256"].toString());
    EXPECT_EQ(sha256OfFile(second), board["sha256"].toString());
    EXPECT_FALSE(QFileInfo::exists(first + ".part"));
    EXPECT_FALSE(QFileInfo::exists(second + ".part"));
}

} // namespace
