// SPDX-License-Identifier: MIT
// User-account and cloud-disk requests end to end: helper -> nubra client ->
// nubra-devcloud on loopback.

#include "TestFiles.h"
#include "Waiting.h"

#include "HelperTestAccess.h"

#include <VornNubraHelper.h>

#include <Nubra/Manager.h>

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

#include <functional>

using NubraCommon::VornCloudDiskInterface;
using NubraCommon::VornUserAccountInterface;
using Watcher = VornNubraHelperRespWatcher;

namespace {

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }

QVariantMap account(VornUserAccountInterface iface, const QVariantMap& body, const QVariantMap& params = {},
                    const QString& extra = {})
{
    QVariantMap result;
    helper()->VornUserAccountRequest(iface, result, body, params, {}, extra, QStringLiteral("e2e-test"));
    return result;
}

QVariantMap resultOf(const QVariantMap& answer) { return answer.value(QStringLiteral("result")).toMap(); }
QString statusOf(const QVariantMap& answer) { return answer.value(QStringLiteral("status")).toString(); }

QString signIn()
{
    const QVariantMap answer = account(VornUserAccountInterface::UserLogin,
                                       {{"account", "demo@vorn.example"}, {"password", "scan3d!"}});
    EXPECT_EQ(statusOf(answer), "success") << answer.value("message").toString().toStdString();
    return resultOf(answer).value("token").toString();
}

QVariantMap disk(VornCloudDiskInterface iface, const QVariantMap& body, const QString& token,
                 const QVariantMap& params = {})
{
    QVariantMap result;
    helper()->VornCloudDiskRequest(iface, result, body, params, {{"X-Auth-Token", token}},
                                   QStringLiteral("e2e-test"));
    return result;
}

QString uploadToken(const QString& token, const QVariantMap& body)
{
    const QVariantMap answer = disk(VornCloudDiskInterface::SdkDynamicEncodeToken, body, token);
    EXPECT_EQ(statusOf(answer), "success") << answer.value("message").toString().toStdString();
    return resultOf(answer).value("uploadToken").toString();
}

qint64 spaceNamed(const QString& token, const QString& name)
{
    const QVariantMap front = resultOf(disk(VornCloudDiskInterface::FetchFrontSpace, {}, token));
    for (const QVariant& v : front.value("spaces").toList())
        if (v.toMap().value("name").toString() == name)
            return v.toMap().value("spaceId").toLongLong();
    return -1;
}

QString writeFile(const QTemporaryDir& dir, const QString& name, qint64 size, char seed)
{
    const QString path = dir.filePath(name);
    EXPECT_TRUE(VornTest::writePatternFile(path, size, seed));
    return path;
}

// Queues files and starts the queue with the blocking overload.
QVariantMap uploadFiles(const QStringList& files, const QString& uploadToken)
{
    QVariantMap queued;
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::UploadCloudSpaceFile, queued, {},
                                   {{"files", files}, {"uploadToken", uploadToken}}, {}, {});
    EXPECT_EQ(statusOf(queued), "success") << queued.value("message").toString().toStdString();
    QVariantMap result;
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::StartUploadStart, result, {}, {}, {}, {});
    return result;
}

} // namespace

TEST(AccountE2E, passwordSignInRejectsAWrongPassword)
{
    EXPECT_FALSE(signIn().isEmpty());
    const QVariantMap wrong =
        account(VornUserAccountInterface::UserLogin, {{"account", "demo@vorn.example"}, {"password", "nope"}});
    EXPECT_EQ(statusOf(wrong), "failure");
    EXPECT_EQ(wrong.value("code").toString(), "wrongCredentials");
    EXPECT_EQ(wrong.value("message").toString(), "wrong account or password");
}

TEST(AccountE2E, verificationCodeSignIn)
{
    const QString who = QStringLiteral("alice@vorn.example");
    // Expired code first: a code issued with a lifetime of 0 s.
    const QVariantMap expired = account(VornUserAccountInterface::UserCodeLogin, {{"account", who}, {"ttl", 0}});
    ASSERT_EQ(statusOf(expired), "success");
    const QString expiredCode = resultOf(expired).value("devCode").toString();
    const QVariantMap late = account(VornUserAccountInterface::UserCodeLogin, {{"account", who}, {"code", expiredCode}});
    EXPECT_EQ(late.value("code").toString(), "codeExpired");

    const QVariantMap sent = account(VornUserAccountInterface::UserCodeLogin, {{"account", who}});
    ASSERT_EQ(statusOf(sent), "success");
    const QString code = resultOf(sent).value("devCode").toString();
    ASSERT_EQ(code.size(), 6);
    const QString wrongCode = code == "000000" ? "111111" : "000000";
    const QVariantMap wrong = account(VornUserAccountInterface::UserCodeLogin, {{"account", who}, {"code", wrongCode}});
    EXPECT_EQ(wrong.value("code").toString(), "wrongCode");
    const QVariantMap ok = account(VornUserAccountInterface::UserCodeLogin, {{"account", who}, {"code", code}});
    ASSERT_EQ(statusOf(ok), "success") << ok.value("message").toString().toStdString();
    EXPECT_EQ(resultOf(ok).value("userID").toLongLong(), 1002);
    // A code signs in once.
    const QVariantMap again = account(VornUserAccountInterface::UserCodeLogin, {{"account", who}, {"code", code}});
    EXPECT_EQ(again.value("code").toString(), "codeUsed");
    const QVariantMap unknown = account(VornUserAccountInterface::UserCodeLogin, {{"account", "nobody@x.example"}});
    EXPECT_EQ(unknown.value("code").toString(), "unknownAccount");
}

TEST(AccountE2E, countriesAndTheCallersCountry)
{
    // The list itself is checked through post() in GeneralCatalogueTest.
    EXPECT_GE(resultOf(account(VornUserAccountInterface::FetchCountries, {})).value("total").toInt(), 240);

    const QVariantMap here = resultOf(account(VornUserAccountInterface::IpCountry, {}));
    EXPECT_EQ(here.value("ip").toString(), "127.0.0.1");
    EXPECT_EQ(here.value("country").toString(), "DE");
    EXPECT_EQ(here.value("source").toString(), "default");

    // A forwarded address from the documentation ranges maps through the table.
    QVariantMap forwarded;
    helper()->VornUserAccountRequest(VornUserAccountInterface::IpCountry, forwarded, {}, {},
                                     {{"X-Forwarded-For", "198.51.100.20, 10.0.0.1"}}, {}, {});
    EXPECT_EQ(resultOf(forwarded).value("country").toString(), "GB");
    EXPECT_EQ(resultOf(forwarded).value("countryName").toString(), "United Kingdom");
}

TEST(AccountE2E, captchaIsARealPngAndIsCheckedOnce)
{
    const QVariantMap answer = resultOf(account(VornUserAccountInterface::Captcha, {}));
    const QByteArray png = QByteArray::fromBase64(answer.value("image").toByteArray());
    ASSERT_TRUE(png.startsWith(QByteArray("\x89PNG\r\n\x1a\n", 8)));
    // Walk the chunks: lengths, CRC presence, IHDR size, IEND at the end.
    int offset = 8;
    QByteArray idat;
    quint32 width = 0, height = 0;
    QStringList types;
    while (offset + 12 <= png.size()) {
        const quint32 length = qFromBigEndian<quint32>(png.constData() + offset);
        const QByteArray type = png.mid(offset + 4, 4);
        const QByteArray data = png.mid(offset + 8, int(length));
        types << QString::fromLatin1(type);
        if (type == "IHDR") {
            width = qFromBigEndian<quint32>(data.constData());
            height = qFromBigEndian<quint32>(data.constData() + 4);
        } else if (type == "IDAT") {
            idat += data;
        }
        offset += 12 + int(length);
    }
    EXPECT_EQ(offset, png.size());
    EXPECT_EQ(types.first(), "IHDR");
    EXPECT_EQ(types.last(), "IEND");
    EXPECT_EQ(int(width), answer.value("width").toInt());
    EXPECT_EQ(int(height), answer.value("height").toInt());
    // The image data inflates to one filter byte plus RGB per row.
    QByteArray sized(4, '\0');
    qToBigEndian<quint32>(height * (1 + width * 3), sized.data());
    const QByteArray pixels = qUncompress(sized + idat);
    EXPECT_EQ(pixels.size(), int(height * (1 + width * 3)));
    EXPECT_GT(pixels.count('\xF4'), 0);           // background
    EXPECT_LT(pixels.count('\xF4'), pixels.size() / 2 + pixels.size() / 3); // and ink

    const QString id = answer.value("captchaId").toString();
    const QVariantMap wrong =
        resultOf(account(VornUserAccountInterface::UserInfoValid, {{"captchaId", id}, {"captchaText", "?????"}}));
    EXPECT_FALSE(wrong.value("valid").toBool());
    const QVariantMap reused =
        resultOf(account(VornUserAccountInterface::UserInfoValid, {{"captchaId", id}, {"captchaText", "?????"}}));
    EXPECT_EQ(reused.value("fields").toMap().value("captcha").toMap().value("reason").toString(),
              "unknown or already used captcha");
}

TEST(AccountE2E, userInfoChecks)
{
    const QVariantMap checked = resultOf(account(VornUserAccountInterface::UserInfoValid,
                                                 {{"account", "demo@vorn.example"},
                                                  {"phone", "+49 30 1234567"},
                                                  {"password", "short"}}));
    const QVariantMap fields = checked.value("fields").toMap();
    EXPECT_FALSE(checked.value("valid").toBool());
    EXPECT_TRUE(fields.value("account").toMap().value("valid").toBool());
    EXPECT_TRUE(fields.value("account").toMap().value("registered").toBool());
    EXPECT_TRUE(fields.value("phone").toMap().value("valid").toBool());
    EXPECT_FALSE(fields.value("password").toMap().value("valid").toBool());
    const QVariantMap empty = account(VornUserAccountInterface::UserInfoValid, {});
    EXPECT_EQ(statusOf(empty), "failure");
}

TEST(AccountE2E, privacyTexts)
{
    const QVariantMap colors =
        resultOf(account(VornUserAccountInterface::GetOEMPrivacyColorInfoByTypeV2, {}, {{"type", "agreement"}}));
    EXPECT_EQ(colors.value("type").toString(), "agreement");
    EXPECT_TRUE(colors.value("colors").toMap().value("primary").toString().startsWith('#'));
    const QVariantMap unknown =
        account(VornUserAccountInterface::GetOEMPrivacyColorInfoByTypeV2, {}, {{"type", "marketing"}});
    EXPECT_EQ(unknown.value("code").toString(), "unknownType");

    const QVariantMap de = resultOf(account(VornUserAccountInterface::FactoryPrivacyView, {}, {{"lang", "de"}}));
    EXPECT_EQ(de.value("lang").toString(), "de");
    EXPECT_FALSE(de.value("fallback").toBool());
    const QVariantMap xx = resultOf(account(VornUserAccountInterface::FactoryPrivacyView, {}, {{"lang", "xx"}}));
    EXPECT_EQ(xx.value("lang").toString(), "en");
    EXPECT_TRUE(xx.value("fallback").toBool());
}

TEST(AccountE2E, extraStringSelectsARegion)
{
    const QString base = helper()->configData().value("baseUrl").toString();
    QSignalSpy configured(VornNubraHelperTestAccess::manager()->setConfigData({{"regions", QVariantMap{{"eu", base}}}}, {}),
                          &Nubra::Reply::finished);
    ASSERT_TRUE(configured.wait(5000));
    EXPECT_EQ(resultOf(account(VornUserAccountInterface::IpCountry, {}, {}, "eu")).value("country").toString(), "DE");
    // An unknown region is refused before anything is sent: the watcher
    // reports a failed start and the result comes back empty.
    EXPECT_TRUE(account(VornUserAccountInterface::IpCountry, {}, {}, "mars").isEmpty());
}

TEST(CloudDiskE2E, spacesAndProfile)
{
    const QString token = signIn();
    const QVariantMap profile = disk(VornCloudDiskInterface::GetUserProfile, {{"userID", 1001}}, token);
    EXPECT_EQ(resultOf(profile).value("account").toString(), "demo@vorn.example");

    const QVariantMap def = resultOf(disk(VornCloudDiskInterface::GetDefaultSpaceInfo, {}, token));
    EXPECT_TRUE(def.value("isDefault").toBool());
    EXPECT_GT(def.value("quotaBytes").toLongLong(), 0);

    const qint64 shared = spaceNamed(token, "Shared Scans");
    ASSERT_GT(shared, 0);
    EXPECT_EQ(statusOf(disk(VornCloudDiskInterface::ChangeSpace, {{"spaceId", shared}}, token)), "success");
    EXPECT_EQ(resultOf(disk(VornCloudDiskInterface::FetchFrontSpace, {}, token))
                  .value("frontSpace").toMap().value("spaceId").toLongLong(),
              shared);
    const QVariantMap missing = disk(VornCloudDiskInterface::ChangeSpace, {{"spaceId", 999999}}, token);
    EXPECT_EQ(missing.value("code").toString(), "unknownSpace");
    EXPECT_EQ(statusOf(disk(VornCloudDiskInterface::ChangeSpace, {{"spaceId", def.value("spaceId")}}, token)),
              "success");

    const QVariantMap noToken = disk(VornCloudDiskInterface::FetchFrontSpace, {}, "bogus");
    EXPECT_EQ(noToken.value("code").toString(), "unauthorized");
}

TEST(CloudDiskE2E, smallUploadWithProgressThenSkip)
{
    QTemporaryDir dir;
    const QString token = signIn();
    const QString upload = uploadToken(token, {{"spaceId", spaceNamed(token, "Shared Scans")}});
    const QStringList files{writeFile(dir, "a.vscan", 3 * 1024 * 1024 + 17, 'a'),
                            writeFile(dir, "b.vscan", 1024 * 1024, 'b')};
    QSignalSpy progress(helper(), &VornNubraHelper::uploadProgress);
    const QVariantMap first = uploadFiles(files, upload);
    ASSERT_EQ(statusOf(first), "success") << first.value("message").toString().toStdString();
    const qint64 total = 4 * 1024 * 1024 + 17;
    EXPECT_EQ(resultOf(first).value("bytesTotal").toLongLong(), total);
    ASSERT_FALSE(progress.isEmpty());
    EXPECT_EQ(progress.last().at(0).toLongLong(), total);
    EXPECT_EQ(progress.last().at(1).toLongLong(), total);
    for (int i = 1; i < progress.size(); ++i)
        EXPECT_GE(progress[i].at(0).toLongLong(), progress[i - 1].at(0).toLongLong());

    for (const QVariant& entry : resultOf(first).value("files").toList())
        EXPECT_EQ(entry.toMap().value("status").toString(), "uploaded");

    // Same files again: skipped. A file of the same size as one stored but
    // other bytes: digest first, then sent anyway.
    const QString twin = writeFile(dir, "a-twin.vscan", 3 * 1024 * 1024 + 17, 'a');
    const QVariantMap second = uploadFiles(files + QStringList{twin}, upload);
    ASSERT_EQ(statusOf(second), "success");
    EXPECT_EQ(resultOf(second).value("skipped").toInt(), 2);
    EXPECT_EQ(resultOf(second).value("uploaded").toInt(), 1);
    EXPECT_EQ(resultOf(second).value("bytesSent").toLongLong(), 3 * 1024 * 1024 + 17);
    const QVariantList entries = resultOf(second).value("files").toList();
    ASSERT_EQ(entries.size(), 3);
    EXPECT_EQ(entries[2].toMap().value("status").toString(), "uploaded");
    EXPECT_NE(entries[2].toMap().value("sha256"), entries[0].toMap().value("sha256"));
    EXPECT_EQ(entries[2].toMap().value("sha256").toString(), VornTest::sha256OfFile(twin));
}

TEST(CloudDiskE2E, refusedUploadsReportPerFileErrors)
{
    QTemporaryDir dir;
    const QString token = signIn();
    const QString file = writeFile(dir, "big.vscan", 2 * 1024 * 1024, 'q');
    struct Row {
        const char* what;
        QVariantMap tokenBody;
        QVariantMap queueParams;
        const char* serverCode;
    };
    const qint64 sandbox = spaceNamed(token, "Sandbox");
    const Row rows[] = {
        {"expired token", {{"ttl", 0}}, {}, "tokenExpired"},
        {"over quota", {{"spaceId", sandbox}}, {}, "overQuota"},
        {"token for another space", {}, {{"spaceId", sandbox}}, "wrongSpace"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        QVariantMap queued;
        QVariantMap params = row.queueParams;
        params.insert("files", QStringList{file});
        params.insert("uploadToken", uploadToken(token, row.tokenBody));
        helper()->VornCloudDiskRequest(VornCloudDiskInterface::UploadCloudSpaceFile, queued, {}, params, {}, {});
        ASSERT_EQ(statusOf(queued), "success");
        // The building overload lets us see the per-file error event.
        QStringList failedItems;
        QVariantMap finished;
        Watcher watcher = helper()->VornCloudDiskRequest(VornCloudDiskInterface::StartUploadStart, {}, {}, {}, {});
        watcher
            .onResp("start", [&](QString, Watcher::ResponseEvent e, const Watcher::Info& info) {
                if (e == Watcher::Error && !info.name.isEmpty())
                    failedItems << info.name;
                if (e == Watcher::Finished)
                    finished = info.params;
            })
            .exec();
        EXPECT_EQ(failedItems, QStringList{file});
        EXPECT_EQ(statusOf(finished), "failure");
        const QVariantMap entry = resultOf(finished).value("files").toList().value(0).toMap();
        EXPECT_EQ(entry.value("status").toString(), "failed");
        EXPECT_EQ(entry.value("serverCode").toString(), row.serverCode);
        EXPECT_FALSE(entry.value("message").toString().isEmpty());
    }
}

TEST(CloudDiskE2E, queueValidationAndRemoveAll)
{
    QTemporaryDir dir;
    const QString token = signIn();
    QVariantMap refused;
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::UploadCloudSpaceFile, refused, {},
                                   {{"files", QStringList{dir.filePath("missing.bin")}}, {"uploadToken", "t"}}, {}, {});
    EXPECT_EQ(statusOf(refused), "failure");
    EXPECT_TRUE(refused.value("message").toString().contains("missing.bin"));

    const QString file = writeFile(dir, "c.vscan", 1000, 'c');
    QVariantMap queued;
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::UploadCloudSpaceFile, queued, {},
                                   {{"files", QStringList{file, file}}, {"uploadToken", uploadToken(token, {})}}, {}, {});
    EXPECT_EQ(resultOf(queued).value("queueLength").toInt(), 2);
    QVariantMap removed;
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::StartUploadRemoveAll, removed, {}, {}, {}, {});
    EXPECT_EQ(resultOf(removed).value("removed").toInt(), 2);
    QVariantMap started;
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::StartUploadStart, started, {}, {}, {}, {});
    EXPECT_EQ(statusOf(started), "success");
    EXPECT_TRUE(resultOf(started).value("files").toList().isEmpty());
}

namespace {

// Drives the upload queue on a manager of our own, to reach the reply's
// stop() and to act in the middle of a batch.
struct QueueClient {
    Nubra::Manager manager;

    QueueClient() { EXPECT_TRUE(VornTest::loadConfig(manager, qEnvironmentVariable("NUBRA_CONFIG"))); }
    QVariantMap run(const QString& name, const QVariantMap& record)
    {
        return VornTest::finishOf(manager.request(name, record, {}), 60000);
    }
    // Starts the queue and calls act() once, on the first progress report.
    QVariantMap startAndAct(const std::function<void(Nubra::Reply*)>& act)
    {
        Nubra::Reply* reply = manager.request("startUpload:start", {}, {});
        bool acted = false;
        QObject::connect(reply, &Nubra::Reply::uploadProgress, reply, [&, reply](qint64, qint64) {
            if (!acted) {
                acted = true;
                act(reply);
            }
        });
        const QVariantMap answer = VornTest::finishOf(reply, 60000);
        EXPECT_TRUE(acted);
        return answer;
    }
};

bool incomingIsEmpty()
{
    const QDir incoming(QFileInfo(qEnvironmentVariable("NUBRA_CONFIG")).dir().filePath("data/disk/incoming"));
    return incoming.entryList(QDir::Files).isEmpty();
}

} // namespace

TEST(UploadQueueE2E, stopRequeuesTheUnfinishedFiles)
{
    QTemporaryDir dir;
    const QString upload = uploadToken(signIn(), {});
    const QString big = writeFile(dir, "big.vscan", 64 * 1024 * 1024 + 3, 'B');
    const QString small = writeFile(dir, "small.vscan", 1500, 's');
    QueueClient client;
    client.run("UploadCloudSpaceFile", {{"params", QVariantMap{{"files", QStringList{big, small}}, {"uploadToken", upload}}}});

    const QVariantMap stopped = client.startAndAct([](Nubra::Reply* reply) { reply->stop(); });
    EXPECT_EQ(statusOf(stopped), "stopped");
    EXPECT_EQ(resultOf(stopped).value("remaining").toList(), (QVariantList{big, small}));

    // The paused files are queued again, in their order.
    const QVariantMap resumed = client.run("startUpload:start", {});
    ASSERT_EQ(statusOf(resumed), "success") << resumed.value("message").toString().toStdString();
    const QVariantList files = resultOf(resumed).value("files").toList();
    ASSERT_EQ(files.size(), 2);
    EXPECT_EQ(files[0].toMap().value("path").toString(), big);
    // The big file may have been complete on the server when the stop came.
    EXPECT_TRUE(QStringList({"uploaded", "skipped"}).contains(files[0].toMap().value("status").toString()));
    EXPECT_EQ(files[1].toMap().value("status").toString(), "uploaded");
}

TEST(UploadQueueE2E, removeAllCancelsARunningBatchAndLeavesNoPartialFile)
{
    QTemporaryDir dir;
    const QString upload = uploadToken(signIn(), {});
    const QString big = writeFile(dir, "cancelled.vscan", 96 * 1024 * 1024 + 5, 'C');
    QueueClient client;
    client.run("UploadCloudSpaceFile", {{"params", QVariantMap{{"files", QStringList{big, big}}, {"uploadToken", upload}}}});

    QVariantMap removed;
    const QVariantMap cancelled = client.startAndAct([&](Nubra::Reply*) {
        Nubra::Reply* clear = client.manager.request("startUpload:removeAll", {}, {});
        QObject::connect(clear, &Nubra::Reply::finished, clear, [&removed, clear](const QVariantMap& map) {
            removed = map;
            clear->deleteLater();
        });
    });
    EXPECT_EQ(statusOf(cancelled), "failure");
    EXPECT_EQ(cancelled.value("errorCode").toInt(), int(Nubra::Error::Cancelled));
    EXPECT_EQ(cancelled.value("message").toString(), "upload queue cleared");
    VornTest::waitUntil([&] { return !removed.isEmpty(); }, 5000);
    EXPECT_TRUE(resultOf(removed).value("cancelled").toBool());
    EXPECT_EQ(resultOf(removed).value("removed").toInt(), 2);

    // Nothing is left queued, and the server dropped the partial body.
    const QVariantMap after = client.run("startUpload:start", {});
    EXPECT_TRUE(resultOf(after).value("files").toList().isEmpty());
    EXPECT_TRUE(VornTest::waitUntil(incomingIsEmpty, 5000));
}
