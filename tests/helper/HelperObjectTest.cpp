// SPDX-License-Identifier: MIT
// The helper object: singleton, construction (configuration handlers,
// download folder, placeholder token), the pass-through getters and the
// gate of the leveled log.

#include "HelperTestSupport.h"

#include "VornLog.h"

#include <ScriptedService.h>
#include <Waiting.h>
#include <TestFiles.h>

#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QCoreApplication>
#include <QTest>

#include <gtest/gtest.h>

#include <functional>

using NubraCommon::Interface;
using VornTest::GlogCapture;
using VornTest::ScriptedService;

namespace {

// A helper built with NUBRA_CONFIG pointing at path, on the given manager;
// deletes the manager too, which the helper itself never does.
class OwnHelper {
public:
    explicit OwnHelper(const QString& configPath, Nubra::Manager* manager = new Nubra::Manager(nullptr))
    {
        qputenv("NUBRA_CONFIG", configPath.toUtf8());
        helper.reset(VornNubraHelperTestAccess::create(manager));
        qputenv("NUBRA_CONFIG", QByteArray());
    }
    ~OwnHelper()
    {
        Nubra::Manager* manager = VornNubraHelperTestAccess::manager(helper.get());
        helper.reset();
        delete manager;
    }
    std::unique_ptr<VornNubraHelper> helper;
};

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& content)
{
    const QString path = dir.filePath(name);
    EXPECT_TRUE(VornTest::writeFile(path, content));
    return path;
}

} // namespace

TEST(HelperObject, singletonIsCreatedOnceWithPlaceholderToken)
{
    VornNubraHelper* first = VornNubraHelper::getInstance();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(VornNubraHelper::getInstance(), first);
    EXPECT_EQ(VornNubraHelperTestAccess::userToken(first), "vqmpz");
    EXPECT_NE(VornNubraHelperTestAccess::manager(first), nullptr);
    EXPECT_EQ(first->parent(), nullptr);

    // The download folder exists after construction.
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                           "/Kelmar Hub/tarvodownload";
    EXPECT_TRUE(QDir(folder).exists()) << folder.toStdString();

    // Six signals, in their fixed order.
    const QMetaObject& meta = VornNubraHelper::staticMetaObject;
    const char* const signatures[] = {"subscribeData(QString,QVariantMap)", "uploadProgress(qlonglong,qlonglong)",
                                      "downloadProgress(qlonglong,qlonglong)", "downloadSuccess()", "downloadFail()",
                                      "quitDownloadLoop()"};
    ASSERT_EQ(meta.methodCount() - meta.methodOffset(), 6);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(meta.method(meta.methodOffset() + i).methodSignature(), QByteArray(signatures[i]));
}

// Before any setUserToken a request with the auth marker carries "vqmpz";
// afterwards the token that was set.
TEST(HelperObject, placeholderTokenUntilSet)
{
    OwnHelper own{QString()};
    ScriptedService service(VornNubraHelperTestAccess::manager(own.helper.get()));
    service.answerAfter("listFAPackageInstance", 0, {{"status", "success"}});
    QVariantMap result;
    ASSERT_EQ(own.helper->post(Interface::ListFAPackageInstance, {}, result, {}, 5000), NubraCommon::Success);
    own.helper->setUserToken("signed-in");
    ASSERT_EQ(own.helper->get(Interface::ListFAPackageInstance, {}, result, 5000), NubraCommon::Success);
    ASSERT_EQ(service.calls.size(), 2);
    EXPECT_EQ(service.calls[0].record.value("headers").toMap().value("X-Auth-Token").toString(), "vqmpz");
    EXPECT_EQ(service.calls[1].record.value("headers").toMap().value("X-Auth-Token").toString(), "signed-in");
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// The constructor does not wait for the configuration: its handlers log on
// a later turn of the event loop, once.
TEST(HelperObject, configurationHandlersLogTheOutcome)
{
    QTemporaryDir dir;
    const QString valid = writeFile(dir, "valid.json",
                                    R"({"baseUrl": "http://127.0.0.1:9", "requests": {},
                                        "productLines": {"default": {"productLine": "VornScan"}}})");
    const QString malformed = writeFile(dir, "malformed.json", "{\"baseUrl\": ");
    struct Case {
        const char* what;
        QString path;
        bool accepted;
    };
    const Case cases[] = {
        {"valid file", valid, true},
        {"missing file", dir.filePath("absent.json"), false},
        {"malformed file", malformed, false},
        {"no override: the file beside the application is absent", QString(), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        GlogCapture glog;
        OwnHelper own(c.path);
        EXPECT_TRUE(glog.texts().isEmpty()) << "nothing is logged before the event loop runs";
        ASSERT_TRUE(VornTest::waitUntil([&] { return !glog.texts().isEmpty(); }, 5000));
        VornTest::deliverQueued(2);
        if (c.accepted) {
            EXPECT_EQ(glog.texts(), QStringList{"set NubraCfg Success"});
        } else {
            EXPECT_GE(glog.count("set NubraCfg error"), 1);
            EXPECT_EQ(glog.count("set NubraCfg Success"), 0);
            EXPECT_EQ(glog.count("set NubraCfg error"), glog.texts().size());
        }
        for (const auto& record : glog.records())
            EXPECT_EQ(record.file, "VornNubraHelper");
    }
}

// The answers a client could give, scripted: only "status" exactly
// "success" counts as success.
TEST(HelperObject, configurationAnswerIsJudgedByItsStatus)
{
    struct Case {
        const char* what;
        QVariantMap answer; // empty: the client reports an error instead
        const char* logged;
    };
    const Case cases[] = {
        {"success", {{"status", "success"}}, "set NubraCfg Success"},
        {"other case", {{"status", "Success"}}, "set NubraCfg error"},
        {"no status", {{"errorCode", 0}}, "set NubraCfg error"},
        {"error signal", {}, "set NubraCfg error"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto* manager = new Nubra::Manager(nullptr);
        VornTest::ScriptedService client(manager, {"setConfigPath"});
        if (c.answer.isEmpty())
            client.errorAfter("setConfigPath", 0, Nubra::Error::ConfigMissing);
        else
            client.answerAfter("setConfigPath", 0, c.answer);
        GlogCapture glog;
        OwnHelper own(QStringLiteral("/scripted/config.json"), manager);
        ASSERT_TRUE(VornTest::waitUntil([&] { return !glog.texts().isEmpty(); }, 5000));
        VornTest::deliverQueued(2);
        ASSERT_EQ(client.callsNamed("setConfigPath").size(), 1);
        EXPECT_EQ(client.callsNamed("setConfigPath").first().record.value("path").toString(),
                  QStringLiteral("/scripted/config.json"));
        EXPECT_GE(glog.count(c.logged), 1);
        EXPECT_EQ(glog.count(c.logged), glog.texts().size()) << glog.texts().join(", ").toStdString();
    }
}

// configData and productLineInformation hand the client's maps over as they are.
TEST(HelperObject, gettersPassTheClientsMapsOn)
{
    QTemporaryDir dir;
    const QString path = writeFile(dir, "config.json",
                                   R"({"baseUrl": "http://127.0.0.1:9", "custom": {"a": 1},
                                       "productLines": {"default": {"productLine": "VornScan", "models": ["VS-200"]}}})");
    OwnHelper own(path);
    VornTest::deliverQueued(); // the configuration handlers log now, not in a later test
    Nubra::Manager* manager = VornNubraHelperTestAccess::manager(own.helper.get());
    EXPECT_EQ(own.helper->configData(), manager->configData());
    EXPECT_EQ(own.helper->configData().value("custom").toMap().value("a").toInt(), 1);
    EXPECT_EQ(own.helper->productLineInformation(),
              (QVariantMap{{"productLine", "VornScan"}, {"models", QVariantList{"VS-200"}}}));
}

// The gate of every leveled log line: with --equal_level only verbosity 0
// logs; without it any verbosity of 0 or more.
TEST(HelperObject, logGateFollowsEqualLevelAndVerbosity)
{
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    ScriptedService service(helperManager());
    service.answerAfter("fetchCountries", 0, {{"status", "success"}});
    struct Case {
        bool equalLevel;
        int verbosity;
        bool written;
    };
    const Case cases[] = {
        {false, 0, true}, {false, 2, true}, {false, -1, false}, {true, 0, true}, {true, 1, false}, {true, -1, false},
    };
    const bool savedEqual = FLAGS_equal_level;
    const int savedV = FLAGS_v;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.equalLevel) + " v=" + std::to_string(c.verbosity));
        FLAGS_equal_level = c.equalLevel;
        FLAGS_v = c.verbosity;
        GlogCapture glog;
        QVariantMap result;
        EXPECT_EQ(helper->post(Interface::FetchCountries, {}, result, {}, 5000), NubraCommon::Success);
        FLAGS_equal_level = savedEqual;
        FLAGS_v = savedV;
        const QStringList expected =
            c.written ? QStringList{"Nubra Post :fetchCountries", "Nubra Post Success"} : QStringList{};
        EXPECT_EQ(glog.texts(), expected);
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// Without a manager every call answers NoManager (2), sends nothing and
// leaves the caller's result and the helper's state as they were.
TEST(HelperObject, everyCallWithoutAManagerAnswersNoManagerAndSendsNothing)
{
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    ScriptedService service(helperManager());
    const QVariantMap kept{{"kept", true}};
    QVariantMap result = kept;
    QVariant result2 = kept;
    const struct {
        const char* call;
        std::function<int()> run;
    } cases[] = {
        {"post", [&] { return helper->post(Interface::FetchCountries, {}, result, {}, 5000); }},
        {"postv1", [&] { return helper->postv1(Interface::FetchCountries, {}, {}, result, {}, 5000); }},
        {"postv2", [&] { return helper->postv2(Interface::FetchCountries, {}, result2, {}, 5000); }},
        {"get", [&] { return helper->get(Interface::FetchCountries, {}, result, 5000); }},
        {"setSoftwareAutoUpgrade", [&] { return helper->setSoftwareAutoUpgrade("VS-200", "1", "release", "en", "/tmp"); }},
        {"checkSoftwareUpgrade", [&] { return helper->checkSoftwareUpgrade("VS-200", result); }},
        {"startDownloadSoftware", [&] { return helper->startDownloadSoftware("VS-200", "1"); }},
        {"pauseDownloadSoftware", [&] { return helper->pauseDownloadSoftware(); }},
        {"checkDownloadSoftwareExist", [&] { return helper->checkDownloadSoftwareExist("VS-200", "1"); }},
        {"downloadFile", [&] { return helper->downloadFile("http://127.0.0.1:1/x", "/tmp/x"); }},
        {"subscribe", [&] { return helper->subscribe("u", {}, {"a/b"}, 0); }},
        {"disconnectFromServer keeps the connected flag", [&] {
             VornNubraHelperTestAccess::connected(helper) = true;
             const int code = helper->disconnectFromServer();
             EXPECT_TRUE(VornNubraHelperTestAccess::connected(helper));
             VornNubraHelperTestAccess::connected(helper) = false;
             return code;
         }},
    };
    Nubra::Manager* const saved = VornNubraHelperTestAccess::manager(helper);
    VornNubraHelperTestAccess::manager(helper) = nullptr;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.call);
        EXPECT_EQ(c.run(), int(NubraCommon::NoManager));
    }
    VornNubraHelperTestAccess::manager(helper) = saved;
    EXPECT_EQ(result, kept);
    EXPECT_EQ(result2.toMap(), kept);
    EXPECT_TRUE(service.calls.isEmpty());
}
