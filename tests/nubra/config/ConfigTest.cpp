// SPDX-License-Identifier: MIT
// The client's configuration: the time-out rule, the URL join, file validation,
// NUBRA_CONFIG, replies of the configuration calls, refused request names.

#include "ClientHarness.h"

#include "config/ClientConfig.h"

#include <gtest/gtest.h>

#include <cmath>

using Nubra::ClientConfig;
using Nubra::Error;
using VornTest::Observed;

namespace {

QString write(const QTemporaryDir& dir, const QString& name, const QByteArray& content)
{
    QFile file(dir.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
    return file.fileName();
}

// Sets an environment variable for the life of the object.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const QByteArray& value)
        : m_name(name)
        , m_old(qgetenv(name))
    {
        qputenv(name, value);
    }
    ~ScopedEnv() { qputenv(m_name, m_old); }

private:
    const char* m_name;
    QByteArray m_old;
};

} // namespace

// One rule: below 1000 seconds, from 1000 on milliseconds.
TEST(ClientConfigTest, timeoutRule)
{
    struct Case {
        QVariant value;
        int expectedMs;
    };
    const int fallback = 7777;
    const Case cases[] = {
        {30, 30000},                 // the configuration maps' {"timeout": 30}
        {3, 3000},                   // {"timeout": 3}
        {QVariant(30.0), 30000},     // JSON numbers arrive as doubles
        {0.5, 500},
        {999, 999000},
        {1000, 1000},                // request options in milliseconds
        {5000, 5000},
        {QStringLiteral("30"), 30000},
        {0, fallback},
        {-5, fallback},
        {QStringLiteral("soon"), fallback},
        {QVariant(), fallback},
        {1e12, 24 * 3600 * 1000},    // capped at a day
        {0.0004, 1},                 // rounded up: 0 would mean "no limit" to curl
        {1000.5, 1001},
        {QStringLiteral("nan"), fallback},
        {QStringLiteral("inf"), 24 * 3600 * 1000},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ClientConfig::timeoutToMs(c.value, fallback), c.expectedMs) << c.value.toString().toStdString();

    // A request's own time-out gets a grace, so that a caller's timer of the
    // same length ends the wait first; without one the default applies as is.
    EXPECT_EQ(ClientConfig::requestTimeoutMs(QVariant(), fallback), fallback);
    EXPECT_EQ(ClientConfig::requestTimeoutMs(0, fallback), fallback);
    EXPECT_EQ(ClientConfig::requestTimeoutMs(1100, fallback), 1100 + 55 + 250);
    EXPECT_EQ(ClientConfig::requestTimeoutMs(30, fallback), 30000 + 1500 + 250);
    EXPECT_GT(ClientConfig::requestTimeoutMs(1e12, fallback), 24 * 3600 * 1000);
}

// The one URL join of every JSON call: a path below the base (with or
// without the base's trailing slash, a '?' starting the query), an absolute
// URL the cloud handed out as it is, and a path that only looks like
// another host ("//host/x") still below the base.
TEST(ClientConfigTest, joinKeepsPathsBelowTheBase)
{
    const struct {
        const char* base;
        const char* pathOrUrl;
        const char* expected;
    } cases[] = {
        {"http://127.0.0.1:8080", "/api/v1/x", "http://127.0.0.1:8080/api/v1/x"},
        {"https://cloud.example/prefix/", "/api/v1/x", "https://cloud.example/prefix/api/v1/x"},
        {"https://cloud.example/prefix", "/api/v1/x?a=1&b=%2B", "https://cloud.example/prefix/api/v1/x?a=1&b=%2B"},
        {"https://cloud.example", "https://cdn.example/p.vpkg?sig=1", "https://cdn.example/p.vpkg?sig=1"},
        {"https://cloud.example", "//evil.example/x", "https://cloud.example//evil.example/x"},
        {"https://cloud.example", "/a:b", "https://cloud.example/a:b"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pathOrUrl);
        EXPECT_EQ(ClientConfig::join(QUrl(c.base), c.pathOrUrl).toString(QUrl::FullyEncoded), c.expected);
    }
}

TEST(ClientConfigTest, fileValidation)
{
    QTemporaryDir dir;
    struct Case {
        const char* what;
        QByteArray content; // empty: no file
        bool accepted;
        Error::ErrorCode error;
    };
    const Case cases[] = {
        {"valid", R"({"baseUrl": "http://127.0.0.1:1", "requests": {"a": {"method": "GET", "path": "/a"}}})", true,
         Error::NoError},
        {"missing file", QByteArray(), false, Error::ConfigMissing},
        {"not JSON", "{\"baseUrl\": ", false, Error::ConfigMalformed},
        {"JSON array", "[1, 2]", false, Error::ConfigMalformed},
        {"baseUrl not http", R"({"baseUrl": "ftp://127.0.0.1/"})", false, Error::ConfigMalformed},
        {"requests not an object", R"({"requests": []})", false, Error::ConfigMalformed},
        {"request path not absolute", R"({"requests": {"a": {"path": "a"}}})", false, Error::ConfigMalformed},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const QString path = c.content.isEmpty() ? dir.filePath("absent.json")
                                                 : write(dir, QString::fromLatin1(c.what) + ".json", c.content);
        ClientConfig config;
        Error::ErrorCode error = Error::NoError;
        QString message;
        EXPECT_EQ(config.loadFile(path, &error, &message), c.accepted);
        EXPECT_EQ(error, c.error);
        if (!c.accepted) {
            EXPECT_TRUE(message.contains(path)) << message.toStdString();
            EXPECT_FALSE(config.isLoaded()) << "a rejected file leaves the configuration as it was";
        }
    }
}

// The file's time-out wins over the application's default; without one
// the application's default (seconds or milliseconds by the same rule) holds.
TEST(ClientConfigTest, defaultTimeoutSources)
{
    QTemporaryDir dir;
    const QString withTimeout = write(dir, "with.json", R"({"timeout": 12})");
    const QString without = write(dir, "without.json", R"({"baseUrl": "http://127.0.0.1:1"})");
    struct Case {
        QString path;
        QVariant applicationDefault;
        int expectedMs;
    };
    const Case cases[] = {
        {withTimeout, 30, 12000},
        {without, 30, 30000},
        {without, 3, 3000},
        {without, 2500, 2500},
        {without, QVariant(), 30000},
    };
    for (const Case& c : cases) {
        ClientConfig config;
        Error::ErrorCode error;
        QString message;
        ASSERT_TRUE(config.loadFile(c.path, &error, &message));
        if (c.applicationDefault.isValid())
            config.setDefaultTimeout(c.applicationDefault);
        EXPECT_EQ(config.defaultTimeoutMs(), c.expectedMs) << c.path.toStdString();
    }
}

TEST(ClientConfigTest, pathsResolveBesideTheFile)
{
    QTemporaryDir dir;
    const QString path = write(dir, "config.json", R"({"caFile": "certs/ca.pem", "stallTimeout": 5})");
    ClientConfig config;
    Error::ErrorCode error;
    QString message;
    ASSERT_TRUE(config.loadFile(path, &error, &message));
    EXPECT_EQ(config.caFile(), dir.filePath("certs/ca.pem"));
    EXPECT_EQ(config.resolvePath("/abs/file"), "/abs/file");
    EXPECT_EQ(config.stallSeconds(), 5);
}

// setConfigPath reports through its reply, on a later loop turn, once.
TEST(ManagerConfigTest, setConfigPathReplies)
{
    QTemporaryDir dir;
    const QString valid = write(dir, "valid.json", R"({"baseUrl": "http://127.0.0.1:1", "custom": 1})");
    const QString malformed = write(dir, "bad.json", "{");
    struct Case {
        const char* what;
        QString path;
        QByteArray env; // NUBRA_CONFIG
        bool success;
        Error::ErrorCode error;
    };
    const Case cases[] = {
        {"valid", valid, QByteArray(), true, Error::NoError},
        {"missing", dir.filePath("none.json"), QByteArray(), false, Error::ConfigMissing},
        {"malformed", malformed, QByteArray(), false, Error::ConfigMalformed},
        {"NUBRA_CONFIG overrides a missing path", dir.filePath("none.json"), valid.toUtf8(), true, Error::NoError},
        {"NUBRA_CONFIG overrides a valid path", valid, malformed.toUtf8(), false, Error::ConfigMalformed},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ScopedEnv env("NUBRA_CONFIG", c.env);
        Nubra::Manager manager;
        const Observed o = VornTest::observe(manager.setConfigPath(c.path, {{"timeout", 30}}));
        EXPECT_FALSE(o.guardExpired);
        EXPECT_EQ(o.status, 0);
        EXPECT_EQ(o.finished, 1);
        if (c.success) {
            EXPECT_EQ(o.errors, 0);
            EXPECT_EQ(o.map.value("status").toString(), "success");
            EXPECT_EQ(manager.configData().value("custom").toInt(), 1);
        } else {
            EXPECT_EQ(o.errors, 1);
            EXPECT_TRUE(o.errorBeforeFinished);
            EXPECT_EQ(o.error, c.error);
            EXPECT_EQ(o.map.value("status").toString(), "failure");
            EXPECT_EQ(o.map.value("errorCode").toInt(), int(c.error));
            EXPECT_FALSE(o.map.value("message").toString().isEmpty());
            EXPECT_TRUE(manager.configData().isEmpty());
        }
    }
}

TEST(ManagerConfigTest, setConfigDataMergesAndValidates)
{
    Nubra::Manager manager;
    Observed o = VornTest::observe(manager.setConfigData(
        {{"baseUrl", "http://127.0.0.1:1"}, {"productLines", QVariantMap{{"default", QVariantMap{{"a", 1}}},
                                                                         {"tool", QVariantMap{{"b", 2}}}}}},
        {}));
    EXPECT_EQ(o.map.value("status").toString(), "success");
    o = VornTest::observe(manager.setConfigData({{"baseUrl", "not a url"}}, {}));
    EXPECT_EQ(o.errors, 1);
    EXPECT_EQ(o.finished, 1);
    EXPECT_EQ(manager.configData().value("baseUrl").toString(), "http://127.0.0.1:1");
    EXPECT_EQ(manager.productLineInformation(Nubra::Manager::DefaultSource), (QVariantMap{{"a", 1}}));
    EXPECT_EQ(manager.productLineInformation(Nubra::Manager::ToolSource), (QVariantMap{{"b", 2}}));
    EXPECT_EQ(manager.productLineInformation(Nubra::Manager::ApplicationSource), (QVariantMap{{"a", 1}}))
        << "an unknown source falls back to the default entry";
}

// A name no service knows is refused at once, and still reports once.
TEST(ManagerConfigTest, unknownRequestIsRefusedAtOnce)
{
    QTemporaryDir dir;
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::configure(
        manager, dir, QJsonObject{{"baseUrl", "http://127.0.0.1:1"},
                                  {"requests", QJsonObject{{"known", QJsonObject{{"path", "/known"}}}}}}));
    for (const char* name : {"unknownThing", "", "Known"}) {
        SCOPED_TRACE(name);
        const Observed o = VornTest::run(manager, QString::fromLatin1(name));
        EXPECT_EQ(o.status, int(Error::UnknownRequest));
        EXPECT_EQ(o.errors, 1);
        EXPECT_EQ(o.error, Error::UnknownRequest);
        EXPECT_EQ(o.finished, 1);
        EXPECT_EQ(o.map.value("status").toString(), "failure");
    }
    // Without a base URL a known name cannot be sent.
    Nubra::Manager bare;
    ASSERT_TRUE(VornTest::configure(bare, dir,
                                    QJsonObject{{"requests", QJsonObject{{"known", QJsonObject{{"path", "/k"}}}}}},
                                    "nobase.json"));
    const Observed o = VornTest::run(bare, "known");
    EXPECT_EQ(o.status, int(Error::NotConfigured));
    EXPECT_EQ(o.finished, 1);
    // An unknown region is refused too.
    const Observed region = VornTest::observe(manager.request("known", "mars", {}, {}));
    EXPECT_EQ(region.status, int(Error::InvalidArgument));
    EXPECT_EQ(region.finished, 1);
}
