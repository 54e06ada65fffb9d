// SPDX-License-Identifier: MIT
// VornUserAccountRequest and VornCloudDiskRequest against a scripted cloud
// client: what each overload sends, how it waits and what reaches the
// caller, including the asymmetries applications depend on.

#include <VornNubraHelper.h>

#include "QtMessageCapture.h"
#include "HelperTestAccess.h"
#include "ScriptedService.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <stdexcept>

using NubraCommon::VornCloudDiskInterface;
using NubraCommon::VornUserAccountInterface;
using Watcher = VornNubraHelperRespWatcher;
using VornTest::ScriptedReply;
using VornTest::ScriptedService;

namespace {

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }

const QVariantMap kBody{{QStringLiteral("account"), QStringLiteral("a@b.c")}};
const QVariantMap kParams{{QStringLiteral("files"), QStringList{QStringLiteral("/tmp/x")}}};
const QVariantMap kHeaders{{QStringLiteral("X-Auth-Token"), QStringLiteral("tok")}};
const QVariantMap kSuccess{{QStringLiteral("status"), QStringLiteral("success")}, {QStringLiteral("n"), 7}};

QVariantMap composed(const QString& source)
{
    return {{QStringLiteral("headers"), kHeaders},
            {QStringLiteral("body"), kBody},
            {QStringLiteral("params"), kParams},
            {QStringLiteral("source"), source}};
}

} // namespace

TEST(UserAccountRequest, eachEntrySendsTheComposedRecordAndReplacesTheResult)
{
    // Every entry with its request name; the extra string (a region) goes
    // along as it is.
    const struct {
        VornUserAccountInterface iface;
        const char* name;
        const char* extra;
    } rows[] = {
        {VornUserAccountInterface::UserLogin, "userLogin", ""},
        {VornUserAccountInterface::UserCodeLogin, "userCodeLogin", "r"},
        {VornUserAccountInterface::FetchCountries, "fetchCountries", ""},
        {VornUserAccountInterface::IpCountry, "ipCountry", "eu-central"},
        {VornUserAccountInterface::Captcha, "captcha", ""},
        {VornUserAccountInterface::UserInfoValid, "userInfoValid", ""},
        {VornUserAccountInterface::GetOEMPrivacyColorInfoByTypeV2, "getOEMPrivacyColorInfoByTypeV2", ""},
        {VornUserAccountInterface::FactoryPrivacyView, "factoryPrivacyView", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedService service(helperManager());
        service.answerAfter(QString::fromLatin1(row.name), 5, kSuccess);
        QVariantMap result{{QStringLiteral("stale"), true}};
        helper()->VornUserAccountRequest(row.iface, result, kBody, kParams, kHeaders, QString::fromLatin1(row.extra),
                                         QStringLiteral("scanner-app"));
        ASSERT_EQ(service.calls.size(), 1);
        const auto& call = service.calls[0];
        EXPECT_EQ(call.name, QString::fromLatin1(row.name));
        EXPECT_EQ(call.extra, QString::fromLatin1(row.extra));
        EXPECT_EQ(call.record, composed(QStringLiteral("scanner-app")));
        EXPECT_TRUE(call.options.isEmpty());
        EXPECT_EQ(result, kSuccess); // replaced, not merged
    }
}

TEST(UserAccountRequest, failedStartEmptiesTheResult)
{
    ScriptedService service(helperManager());
    service.setStatus(QStringLiteral("ipCountry"), int(Nubra::Error::NotConfigured));
    QVariantMap result{{QStringLiteral("stale"), true}};
    helper()->VornUserAccountRequest(VornUserAccountInterface::IpCountry, result, {}, {}, {}, {}, {});
    EXPECT_EQ(service.calls.size(), 1);
    EXPECT_TRUE(result.isEmpty());
}

TEST(UserAccountRequest, unknownInterfaceThrowsTheCheckedLookupMessageBeforeSending)
{
    ScriptedService service(helperManager());
    QVariantMap result{{QStringLiteral("kept"), 1}};
    for (int value : {2, 3, 10, -1}) {
        SCOPED_TRACE(value);
        try {
            helper()->VornUserAccountRequest(VornUserAccountInterface(value), result, {}, {}, {}, {}, {});
            ADD_FAILURE() << "no exception";
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "map::at:  key not found");
        }
    }
    EXPECT_TRUE(service.calls.isEmpty());
    EXPECT_EQ(result, (QVariantMap{{QStringLiteral("kept"), 1}}));
}

TEST(UserAccountRequest, buildingOverloadSendsNothingUntilExecuted)
{
    ScriptedService service(helperManager());
    service.answerAfter(QStringLiteral("userLogin"), 0, kSuccess);
    QVariantMap body = kBody;
    Watcher watcher = helper()->VornUserAccountRequest(VornUserAccountInterface::UserLogin, body, {}, {}, {},
                                                       QStringLiteral("src"));
    body.insert(QStringLiteral("changed"), true); // the maker holds its own copy
    EXPECT_TRUE(watcher.request.isEmpty());
    EXPECT_TRUE(service.calls.isEmpty());
    QVariantMap seen;
    watcher.onResp(QStringLiteral("mine"), [&seen](QString, Watcher::ResponseEvent e, const Watcher::Info& info) {
        if (e == Watcher::Finished)
            seen = info.params;
    }).exec();
    ASSERT_EQ(service.calls.size(), 1);
    EXPECT_EQ(service.calls[0].record.value(QStringLiteral("body")).toMap(), kBody);
    EXPECT_EQ(seen, kSuccess);
}

TEST(CloudDiskRequest, uploadControlsSendTheParamsAloneWithTimeoutOnlyWhenBlocking)
{
    struct Row {
        VornCloudDiskInterface iface;
        const char* name;
        bool control;
    };
    const Row rows[] = {
        {VornCloudDiskInterface::GetUserProfile, "getUserProfile", false},
        {VornCloudDiskInterface::FetchFrontSpace, "fetchFrontSpace", false},
        {VornCloudDiskInterface::GetDefaultSpaceInfo, "getDefaultSpaceInfo", false},
        {VornCloudDiskInterface::SdkDynamicEncodeToken, "sdkDynamicEncodeToken", false},
        {VornCloudDiskInterface::ChangeSpace, "changeSpace", false},
        {VornCloudDiskInterface::StartUploadStart, "startUpload:start", true},
        {VornCloudDiskInterface::UploadCloudSpaceFile, "UploadCloudSpaceFile", false},
        {VornCloudDiskInterface::StartUploadRemoveAll, "startUpload:removeAll", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedService service(helperManager());
        service.answerAfter(QString::fromLatin1(row.name), 0, kSuccess);
        QVariantMap result;
        helper()->VornCloudDiskRequest(row.iface, result, kBody, kParams, kHeaders, QStringLiteral("src"));
        Watcher watcher = helper()->VornCloudDiskRequest(row.iface, kBody, kParams, kHeaders, QStringLiteral("src"));
        EXPECT_EQ(watcher.request, composed(QStringLiteral("src")));
        watcher.onResp(QStringLiteral("w"), nullptr).exec();

        ASSERT_EQ(service.calls.size(), 2);
        const QVariantMap expectedRecord = row.control ? kParams : composed(QStringLiteral("src"));
        for (const auto& call : service.calls) {
            EXPECT_EQ(call.name, QString::fromLatin1(row.name));
            EXPECT_EQ(call.record, expectedRecord);
            EXPECT_TRUE(call.extra.isEmpty());
        }
        const QVariantMap blockingOptions =
            row.control ? QVariantMap{{QStringLiteral("timeout"), 30}} : QVariantMap();
        EXPECT_EQ(service.calls[0].options, blockingOptions);
        EXPECT_TRUE(service.calls[1].options.isEmpty());
        EXPECT_EQ(result, kSuccess);
    }
}

TEST(CloudDiskRequest, onlyTheQueueStartRelaysUploadProgress)
{
    const struct {
        VornCloudDiskInterface iface;
        const char* name;
        int expectedSignals;
    } rows[] = {
        {VornCloudDiskInterface::StartUploadStart, "startUpload:start", 2},
        {VornCloudDiskInterface::StartUploadRemoveAll, "startUpload:removeAll", 0},
        {VornCloudDiskInterface::UploadCloudSpaceFile, "UploadCloudSpaceFile", 0},
        {VornCloudDiskInterface::FetchFrontSpace, "fetchFrontSpace", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedService service(helperManager());
        service.setScript(QString::fromLatin1(row.name), [](ScriptedReply* reply, const ScriptedService::Call&) {
            QTimer::singleShot(0, reply, [reply] {
                reply->sendUploadProgress(10, 100);
                reply->sendUploadProgress(100, 100);
                reply->sendFinished({{QStringLiteral("status"), QStringLiteral("success")}});
            });
        });
        QSignalSpy progress(helper(), &VornNubraHelper::uploadProgress);
        QVariantMap result;
        helper()->VornCloudDiskRequest(row.iface, result, {}, {}, {}, {});
        ASSERT_EQ(progress.size(), row.expectedSignals);
        if (row.expectedSignals) {
            EXPECT_EQ(progress.last().at(0).toLongLong(), 100);
            EXPECT_EQ(progress.last().at(1).toLongLong(), 100);
        }
    }
}

TEST(CloudDiskRequest, answerStatusHandling)
{
    const QVariantMap noStatus{{QStringLiteral("n"), 1}};
    const QVariantMap capital{{QStringLiteral("status"), QStringLiteral("Success")}};
    struct Row {
        const char* what;
        QVariantMap answer;
        QVariantMap expected;
    };
    QVariantMap noStatusPlusEmpty = noStatus;
    noStatusPlusEmpty.insert(QStringLiteral("status"), QVariant());
    const Row rows[] = {
        {"success passes unchanged", kSuccess, kSuccess},
        {"missing status gains an empty entry", noStatus, noStatusPlusEmpty},
        {"other case still handed over", capital, capital},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        ScriptedService service(helperManager());
        service.answerAfter(QStringLiteral("changeSpace"), 0, row.answer);
        QVariantMap result{{QStringLiteral("stale"), 1}};
        helper()->VornCloudDiskRequest(VornCloudDiskInterface::ChangeSpace, result, {}, {}, {}, {});
        EXPECT_EQ(result, row.expected);
        EXPECT_TRUE(result.contains(QStringLiteral("status")));
    }
}

TEST(CloudDiskRequest, refusedOrUnknownLeavesTheResultAlone)
{
    const QVariantMap before{{QStringLiteral("kept"), 1}};
    {
        ScriptedService service(helperManager());
        service.setStatus(QStringLiteral("fetchFrontSpace"), int(Nubra::Error::Busy));
        QVariantMap result = before;
        helper()->VornCloudDiskRequest(VornCloudDiskInterface::FetchFrontSpace, result, {}, {}, {}, {});
        EXPECT_EQ(service.calls.size(), 1);
        EXPECT_EQ(result, before);
    }
    {
        ScriptedService service(helperManager());
        service.setNullReply(QStringLiteral("fetchFrontSpace"));
        QVariantMap result = before;
        helper()->VornCloudDiskRequest(VornCloudDiskInterface::FetchFrontSpace, result, {}, {}, {}, {});
        EXPECT_EQ(result, before);
    }
    {
        ScriptedService service(helperManager());
        QVariantMap result = before;
        helper()->VornCloudDiskRequest(VornCloudDiskInterface(8), result, {}, {}, {}, {});
        EXPECT_TRUE(service.calls.isEmpty());
        EXPECT_EQ(result, before);

        // The building overload's maker answers "no reply": the watcher
        // reports 20630.
        QList<int> events;
        int error = 0;
        Watcher watcher = helper()->VornCloudDiskRequest(VornCloudDiskInterface(8), {}, {}, {}, {});
        EXPECT_FALSE(watcher.onResp(QStringLiteral("x"), [&](QString, Watcher::ResponseEvent e, const Watcher::Info& i) {
                                events << int(e);
                                error = i.error;
                            }).exec());
        EXPECT_EQ(events, (QList<int>{Watcher::Error, Watcher::Finished}));
        EXPECT_EQ(error, Watcher::NoReplyError);
        EXPECT_TRUE(service.calls.isEmpty());
    }
}

TEST(CloudDiskRequest, lateAnswerAfterTheWaitEndedIsIgnored)
{
    // The reply finishes twice (a misbehaving client): only the first
    // answer, which ended the wait, reaches the caller.
    ScriptedService service(helperManager());
    QPointer<ScriptedReply> replyPtr;
    service.setScript(QStringLiteral("getDefaultSpaceInfo"), [&replyPtr](ScriptedReply* reply, const ScriptedService::Call&) {
        replyPtr = reply;
        QTimer::singleShot(0, reply, [reply] {
            reply->sendFinished({{QStringLiteral("status"), QStringLiteral("success")}, {QStringLiteral("n"), 1}});
            reply->sendFinished({{QStringLiteral("status"), QStringLiteral("success")}, {QStringLiteral("n"), 2}});
        });
    });
    QVariantMap result;
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::GetDefaultSpaceInfo, result, {}, {}, {}, {});
    EXPECT_EQ(result.value(QStringLiteral("n")).toInt(), 1);
    // The reply was released by deferred deletion.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(replyPtr.isNull());
}

TEST(AccountDiskLogs, debugLinesKeepTheirTexts)
{
    ScriptedService service(helperManager());
    service.answerAfter(QStringLiteral("captcha"), 0, kSuccess);
    service.answerAfter(QStringLiteral("changeSpace"), 0, {{QStringLiteral("status"), QStringLiteral("Success")}});
    // Lists at any depth are written as Qt 5 writes them, also when built with Qt 6.
    const QVariantMap withLists{
        {QStringLiteral("status"), QStringLiteral("Success")},
        {QStringLiteral("result"),
         QVariantMap{{QStringLiteral("ids"), QVariantList{1, QStringLiteral("two"), QVariantList{}, QVariant()}},
                     {QStringLiteral("tags"), QStringList{QStringLiteral("a"), QStringLiteral("b\"")}}}}};
    VornTest::QtMessageCapture capture;
    QVariantMap result;
    helper()->VornUserAccountRequest(VornUserAccountInterface::Captcha, result, {}, {}, {}, {}, {});
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::ChangeSpace, result, {}, {}, {}, {});
    service.answerAfter(QStringLiteral("changeSpace"), 0, withLists);
    helper()->VornCloudDiskRequest(VornCloudDiskInterface::ChangeSpace, result, {}, {}, {}, {});
    helper()->VornCloudDiskRequest(VornCloudDiskInterface(8), result, {}, {}, {}, {});
    const QStringList expected{
        QStringLiteral("VornUserAccountRequest interface is  \"captcha\""),
        QStringLiteral("finished______ \"\""),
        QStringLiteral("VornCloudDiskRequest interface is  \"changeSpace\""),
        QStringLiteral("VornCloudDiskRequest finished error  QMap((\"status\", QVariant(QString, \"Success\")))"),
        QStringLiteral("VornCloudDiskRequest finished error  QMap((\"result\", QVariant(QVariantMap, QMap((\"ids\", "
                       "QVariant(QVariantList, (QVariant(int, 1), QVariant(QString, \"two\"), QVariant(QVariantList, ()), "
                       "QVariant(Invalid))))(\"tags\", QVariant(QStringList, (\"a\", \"b\\\"\"))))))(\"status\", "
                       "QVariant(QString, \"Success\")))"),
        QStringLiteral("VornCloudDiskRequest interface  \"changeSpace\"  finished"),
        QStringLiteral("VornCloudDiskRequest have not 8 interface"),
    };
    for (const QString& line : expected)
        EXPECT_TRUE(capture.messages().contains("default:" + line))
            << line.toStdString() << "\nin:\n" << capture.messages().join('\n').toStdString();
}
