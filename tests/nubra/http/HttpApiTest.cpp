// SPDX-License-Identifier: MIT
// The HTTP API service over real sockets on loopback: a private dev cloud
// for the faults it can inject, small local servers for what only a test
// server can observe (connections, received bytes, TLS).

#include "ClientHarness.h"
#include "LocalServer.h"
#include "TestCertificate.h"

#include <DevCloudProcess.h>
#include <Waiting.h>

#include <QAbstractEventDispatcher>
#include <QFile>
#include <QJsonArray>
#include <QLoggingCategory>
#include <QMutex>
#include <QPointer>
#include <QSet>
#include <QTcpServer>
#include <QTcpSocket>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <chrono>
#include <thread>
#include <vector>

using Nubra::Error;
using VornTest::Observed;

namespace {

std::unique_ptr<VornTest::DevCloudProcess> g_cloud;

class DevCloudApi : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        g_cloud = std::make_unique<VornTest::DevCloudProcess>();
        ASSERT_TRUE(g_cloud->start()) << g_cloud->output().toStdString();
    }
    static void TearDownTestSuite() { g_cloud.reset(); }

    void SetUp() override
    {
        ASSERT_TRUE(g_cloud);
        const Observed o = VornTest::observe(manager.setConfigPath(g_cloud->configPath(), {}));
        ASSERT_EQ(o.map.value("status").toString(), "success") << g_cloud->output().toStdString();
    }

    Nubra::Manager manager;
};

QVariantMap faultHeader(const char* fault) { return {{"X-Devcloud-Fault", QString::fromLatin1(fault)}}; }

// Echoes what arrived: method, selected headers, query and body.
void echo(const httplib::Request& request, httplib::Response& response)
{
    QJsonObject query;
    for (const auto& p : request.params)
        query.insert(QString::fromStdString(p.first), QString::fromStdString(p.second));
    const QJsonObject result{
        {"method", QString::fromStdString(request.method)},
        {"token", QString::fromStdString(request.get_header_value("X-Auth-Token"))},
        {"trace", QString::fromStdString(request.get_header_value("X-Trace"))},
        {"contentType", QString::fromStdString(request.get_header_value("Content-Type"))},
        {"contentTypeCount", int(request.get_header_value_count("Content-Type"))},
        {"accept", QString::fromStdString(request.get_header_value("Accept"))},
        {"acceptCount", int(request.get_header_value_count("Accept"))},
        {"query", query},
        {"body", QString::fromStdString(request.body)},
        {"port", request.remote_port}};
    const QJsonObject answer{{"status", "success"}, {"result", result}};
    response.set_content(QJsonDocument(answer).toJson(QJsonDocument::Compact).toStdString(), "application/json");
}

QJsonObject echoConfig(const QString& baseUrl)
{
    return QJsonObject{{"baseUrl", baseUrl},
                       {"requests", QJsonObject{{"echoPost", QJsonObject{{"method", "POST"}, {"path", "/echo"}}},
                                                {"echoGet", QJsonObject{{"method", "GET"}, {"path", "/echo"}}},
                                                {"echoPut", QJsonObject{{"method", "PUT"}, {"path", "/echo"}}},
                                                {"slow", QJsonObject{{"method", "POST"}, {"path", "/slow"}}},
                                                {"moved", QJsonObject{{"method", "POST"}, {"path", "/moved"}}},
                                                {"broken", QJsonObject{{"method", "POST"}, {"path", "/broken"}}}}}};
}

using EchoServer = VornTest::LocalServer<httplib::Server>;

// Requests to /slow that reached the server, and that it answered.
std::atomic<int> g_slowStarted{0};
std::atomic<int> g_slowAnswered{0};

std::unique_ptr<EchoServer> startEchoServer()
{
    auto server = std::make_unique<EchoServer>();
    server->server.set_keep_alive_max_count(1000); // the default closes every 5th request
    server->server.Post("/echo", echo);
    server->server.Get("/echo", echo);
    server->server.Put("/echo", echo);
    server->server.Post("/slow", [](const httplib::Request& request, httplib::Response& response) {
        ++g_slowStarted;
        std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the server is slow, not the test
        echo(request, response);
        ++g_slowAnswered;
    });
    server->server.Post("/moved", [](const httplib::Request& request, httplib::Response& response) {
        response.set_redirect("/echo?from=" + std::to_string(request.remote_port), 307);
    });
    server->server.Post("/broken", [](const httplib::Request&, httplib::Response& response) {
        response.status = 500;
        response.set_content("upstream exploded", "text/plain");
    });
    EXPECT_GT(server->start(), 0);
    return server;
}

} // namespace

// Every outcome the dev cloud can produce: the finished map, the error
// code, and finished exactly once (after errorOccurred when there is one).
TEST_F(DevCloudApi, outcomesOfEachFault)
{
    struct Case {
        const char* what;
        const char* name;
        QVariantMap record;
        QVariantMap options;
        Error::ErrorCode error; // NoError: finished with the server's map
        const char* status;
    };
    const QVariantMap device{{"sn", "VS2024000123"}};
    const Case cases[] = {
        {"answer", "getDeviceAction", {{"body", device}}, {}, Error::NoError, "success"},
        {"server failure status", "getDeviceAction", {{"headers", faultHeader("failure")}, {"body", device}}, {},
         Error::NoError, "failure"},
        {"JSON failure with HTTP 401 is the server's answer", "getUserProfile",
         {{"headers", QVariantMap{{"X-Auth-Token", "vqmpz"}}}, {"body", QVariantMap{{"userID", 1001}}}}, {},
         Error::NoError, "failure"},
        {"GET carries the body as query", "authToken", {{"body", QVariantMap{{"token", "nope"}}}}, {},
         Error::NoError, "success"},
        {"fault through the query", "getDeviceAction",
         {{"params", QVariantMap{{"devcloudFault", "failure"}}}, {"body", device}}, {}, Error::NoError, "failure"},
        {"delay beyond the time-out (ms option)", "getDeviceAction",
         {{"headers", faultHeader("delay=2500")}, {"body", device}}, {{"timeout", 1000}}, Error::TimedOut, "failure"},
        {"delay beyond the time-out (seconds option)", "getDeviceAction",
         {{"headers", faultHeader("delay=2500")}, {"body", device}}, {{"timeout", 1}}, Error::TimedOut, "failure"},
        {"connection dropped", "getDeviceAction", {{"headers", faultHeader("drop")}, {"body", device}}, {},
         Error::ConnectionClosed, "failure"},
        {"non-JSON answer", "getDeviceAction", {{"headers", faultHeader("nonjson")}, {"body", device}}, {},
         Error::InvalidResponse, "failure"},
        {"HTTP error without JSON", "getDeviceAction", {{"headers", faultHeader("http=503")}, {"body", device}}, {},
         Error::HttpError, "failure"},
        {"a fault that cannot be injected is refused (an interim status would never end)", "getDeviceAction",
         {{"headers", faultHeader("http=100")}, {"body", device}}, {{"timeout", 3}}, Error::NoError, "failure"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Observed o = VornTest::run(manager, c.name, c.record, c.options);
        EXPECT_FALSE(o.guardExpired);
        EXPECT_EQ(o.status, 0);
        EXPECT_EQ(o.finished, 1);
        EXPECT_EQ(o.map.value("status").toString(), c.status);
        if (c.error == Error::NoError) {
            EXPECT_EQ(o.errors, 0) << o.map.value("message").toString().toStdString();
        } else {
            EXPECT_EQ(o.errors, 1);
            EXPECT_EQ(o.error, c.error) << o.map.value("message").toString().toStdString();
            EXPECT_TRUE(o.errorBeforeFinished);
            EXPECT_EQ(o.map.value("errorCode").toInt(), int(c.error));
        }
    }
    // The client still works after all of them.
    const Observed after = VornTest::run(manager, "getDeviceAction", {{"body", device}});
    EXPECT_EQ(after.map.value("result").toMap().value("modelCode").toString(), "VS-200");
}

// What the dev cloud answers by itself, to requests no handler can take;
// each answer comes at once, as JSON.
TEST_F(DevCloudApi, malformedRequestsGetClearAnswers)
{
    struct Case {
        const char* what;
        QByteArray request;
        int status;
        const char* message;
    };
    const Case cases[] = {
        // Without the refusal the server reads the body until the client
        // closes, and the client waits for an answer meanwhile.
        {"body without a length", "POST /api/v1/device/action HTTP/1.1\r\nHost: x\r\n\r\n", 411, "Content-Length"},
        // Refused before the body is read: JSON bodies are read whole.
        {"body larger than any API request",
         "POST /api/v1/device/action HTTP/1.1\r\nHost: x\r\nContent-Length: 300000000\r\n\r\n{", 413,
         "too large"},
        {"unknown method", "BREW /api/v1/device/action HTTP/1.1\r\nHost: x\r\n\r\n", 400, "malformed request"},
        {"unknown path", "GET /api/v1/teapot HTTP/1.1\r\nHost: x\r\n\r\n", 404, "no such endpoint"},
    };
    const QUrl base(g_cloud->baseUrl());
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        QTcpSocket socket;
        socket.connectToHost(base.host(), quint16(base.port()));
        ASSERT_TRUE(socket.waitForConnected(5000));
        socket.write(c.request);
        QByteArray answer;
        VornTest::waitUntil(
            [&] {
                answer += socket.readAll();
                return answer.contains("\r\n\r\n") && answer.endsWith('}');
            },
            5000);
        const int headEnd = answer.indexOf("\r\n\r\n");
        ASSERT_GT(headEnd, 0) << answer.toStdString();
        EXPECT_TRUE(answer.startsWith("HTTP/1.1 " + QByteArray::number(c.status))) << answer.toStdString();
        const QJsonObject json = QJsonDocument::fromJson(answer.mid(headEnd + 4)).object();
        EXPECT_EQ(json.value("status").toString(), "failure");
        EXPECT_TRUE(json.value("message").toString().contains(c.message)) << answer.toStdString();
    }
}

// Nothing listens on the port: refused, once.
TEST(HttpApi, refusedConnection)
{
    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    const quint16 closedPort = probe.serverPort();
    probe.close();
    QTemporaryDir dir;
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(QStringLiteral("http://127.0.0.1:%1").arg(closedPort))));
    const Observed o = VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"a", 1}}}});
    EXPECT_EQ(o.finished, 1);
    EXPECT_EQ(o.errors, 1);
    EXPECT_EQ(o.error, Error::ConnectionRefused);
    EXPECT_EQ(o.map.value("status").toString(), "failure");
}

// How the record maps onto HTTP: headers, query, JSON body; GET sends the
// body's entries as query parameters; PUT sends its body too.
TEST(HttpApi, recordMapsOntoHttp)
{
    auto server = startEchoServer();
    QTemporaryDir dir;
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(server->url())));
    // Query values with the characters a query gives meaning to: servers
    // read a bare '+' as a space.
    const QString sig = QStringLiteral("a+b c&d=e/\u00e9#%");
    const QVariantMap record{{"headers", QVariantMap{{"X-Auth-Token", "tok"}, {"X-Trace", "t1"}}},
                             {"params", QVariantMap{{"page", 2}, {"tags", QVariantList{"a", "b"}}, {"s+g", sig}}},
                             {"body", QVariantMap{{"sn", "VS1"}, {"n", 3}, {"mail", "x+y@z"}}}};
    struct Case {
        const char* name;
        const char* method;
        QJsonObject query;
        bool jsonBody;
    };
    const Case cases[] = {
        {"echoPost", "POST", QJsonObject{{"page", "2"}, {"tags", "b"}, {"s+g", sig}}, true},
        {"echoPut", "PUT", QJsonObject{{"page", "2"}, {"tags", "b"}, {"s+g", sig}}, true},
        {"echoGet", "GET",
         QJsonObject{{"page", "2"}, {"tags", "b"}, {"s+g", sig}, {"sn", "VS1"}, {"n", "3"}, {"mail", "x+y@z"}}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Observed o = VornTest::run(manager, c.name, record);
        ASSERT_EQ(o.finished, 1);
        ASSERT_EQ(o.errors, 0) << o.map.value("message").toString().toStdString();
        const QVariantMap seen = o.map.value("result").toMap();
        EXPECT_EQ(seen.value("method").toString(), c.method);
        EXPECT_EQ(seen.value("token").toString(), "tok");
        EXPECT_EQ(seen.value("trace").toString(), "t1");
        EXPECT_EQ(QJsonObject::fromVariantMap(seen.value("query").toMap()), c.query)
            << QJsonDocument(QJsonObject::fromVariantMap(seen.value("query").toMap())).toJson().toStdString();
        if (c.jsonBody) {
            EXPECT_EQ(seen.value("contentType").toString(), "application/json");
            EXPECT_EQ(QJsonDocument::fromJson(seen.value("body").toString().toUtf8()).object(),
                      (QJsonObject{{"sn", "VS1"}, {"n", 3}, {"mail", "x+y@z"}}));
        } else {
            EXPECT_TRUE(seen.value("body").toString().isEmpty());
        }
    }
    // The caller's own Accept and Content-Type replace the defaults, in any
    // spelling, instead of going out next to them.
    for (const char* name : {"echoPost", "echoGet"}) {
        SCOPED_TRACE(name);
        const Observed own = VornTest::run(
            manager, name,
            {{"headers", QVariantMap{{"content-type", "application/json; charset=utf-8"}, {"ACCEPT", "text/plain"}}},
             {"body", QVariantMap{{"sn", "VS1"}}}});
        const QVariantMap seen = own.map.value("result").toMap();
        EXPECT_EQ(seen.value("acceptCount").toInt(), 1);
        EXPECT_EQ(seen.value("accept").toString(), "text/plain");
        EXPECT_EQ(seen.value("contentTypeCount").toInt(), 1);
        EXPECT_EQ(seen.value("contentType").toString(), "application/json; charset=utf-8");
    }
    const QVariantMap defaults = VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"sn", "VS1"}}}})
                                     .map.value("result").toMap();
    EXPECT_EQ(defaults.value("accept").toString(), "application/json");
    EXPECT_EQ(defaults.value("acceptCount").toInt(), 1);
    EXPECT_EQ(defaults.value("contentTypeCount").toInt(), 1);

    // A header that would split the request is refused before sending.
    const Observed bad =
        VornTest::run(manager, "echoPost", {{"headers", QVariantMap{{"X-Trace", "a\r\nX-Injected: 1"}}}});
    EXPECT_EQ(bad.status, int(Error::InvalidArgument));
    EXPECT_EQ(bad.finished, 1);
}

// Sequential requests reuse one kept-alive connection, and their easy
// handles: what one request set (a POST body, a header, a time-out) must
// not leak into the next one on the same handle.
TEST(HttpApi, keepAliveReusesConnections)
{
    auto server = startEchoServer();
    QTemporaryDir dir;
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(server->url())));
    QSet<int> ports;
    const int requests = 30;
    for (int i = 0; i < requests; ++i) {
        SCOPED_TRACE(i);
        const bool get = i % 2;
        QVariantMap record{{"body", QVariantMap{{"i", i}}}};
        if (i % 3 == 0)
            record.insert("headers", QVariantMap{{"X-Trace", QString::number(i)}});
        const Observed o = VornTest::run(manager, get ? "echoGet" : "echoPost", record);
        ASSERT_EQ(o.errors, 0);
        const QVariantMap seen = o.map.value("result").toMap();
        ports.insert(seen.value("port").toInt());
        EXPECT_EQ(seen.value("method").toString(), get ? "GET" : "POST");
        EXPECT_EQ(seen.value("trace").toString(), i % 3 == 0 ? QString::number(i) : QString());
        if (get) {
            EXPECT_TRUE(seen.value("body").toString().isEmpty());
            EXPECT_EQ(seen.value("query").toMap().value("i").toString(), QString::number(i));
        } else {
            EXPECT_EQ(QJsonDocument::fromJson(seen.value("body").toString().toUtf8()).object(), (QJsonObject{{"i", i}}));
        }
    }
    EXPECT_EQ(ports.size(), 1) << "client ports seen by the server: " << ports.size();
}

// A redirect is followed (a 307 keeps the method and body); the endpoint's
// own URL is unchanged for the requests after it.
TEST(HttpApi, redirectsAreFollowed)
{
    auto server = startEchoServer();
    QTemporaryDir dir;
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(server->url())));
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const Observed moved = VornTest::run(manager, "moved", {{"body", QVariantMap{{"i", i}}}});
        ASSERT_EQ(moved.errors, 0) << moved.map.value("message").toString().toStdString();
        const QVariantMap seen = moved.map.value("result").toMap();
        EXPECT_EQ(seen.value("method").toString(), "POST");
        EXPECT_TRUE(seen.value("query").toMap().contains("from"));
        EXPECT_EQ(QJsonDocument::fromJson(seen.value("body").toString().toUtf8()).object(), (QJsonObject{{"i", i}}));
        const Observed direct = VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"i", i}}}});
        ASSERT_EQ(direct.errors, 0);
        EXPECT_FALSE(direct.map.value("result").toMap().value("query").toMap().contains("from"));
    }
}

// A download started after an API POST on the same manager gets the easy
// handle that the POST used: it must go out as a plain GET, without the
// POST's body (whose memory is gone by then).
TEST(HttpApi, downloadAfterAnApiPostIsAPlainGet)
{
    auto server = startEchoServer();
    QTemporaryDir dir;
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(server->url())));
    ASSERT_EQ(VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"sn", "VS1"}}}}).errors, 0);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // the POST's handle is back
    const QString file = dir.filePath("echo.json");
    const Observed o = VornTest::run(manager, "startDownload", {{"urls", server->url() + "/echo"}, {"path", file}});
    ASSERT_EQ(o.errors, 0) << o.map.value("message").toString().toStdString();
    QFile saved(file);
    ASSERT_TRUE(saved.open(QIODevice::ReadOnly));
    const QJsonObject seen = QJsonDocument::fromJson(saved.readAll()).object().value("result").toObject();
    EXPECT_EQ(seen.value("method").toString(), "GET");
    EXPECT_TRUE(seen.value("body").toString().isEmpty());
}

namespace {

// Sets an environment variable for the life of the object, then restores it.
class ScopedEnv {
public:
    // A null value unsets the variable.
    ScopedEnv(const char* name, const QByteArray& value)
        : m_name(name)
        , m_had(qEnvironmentVariableIsSet(name))
        , m_old(qgetenv(name))
    {
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    }
    ~ScopedEnv()
    {
        if (m_had)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }

private:
    const char* m_name;
    bool m_had;
    QByteArray m_old;
};

} // namespace

// A proxy named in the configuration, or in the environment when the
// configuration is loaded, carries the requests (a forward proxy sees the
// absolute URL); no_proxy exempts a host; without either they go direct.
TEST(HttpApi, proxyFromConfigurationOrEnvironment)
{
    auto origin = startEchoServer();
    VornTest::LocalServer<httplib::Server> proxy;
    proxy.server.Post(".*", [](const httplib::Request& request, httplib::Response& response) {
        const QJsonObject answer{{"status", "success"},
                                 {"result", QJsonObject{{"proxiedTarget", QString::fromStdString(request.path)}}}};
        response.set_content(QJsonDocument(answer).toJson(QJsonDocument::Compact).toStdString(), "application/json");
    });
    ASSERT_GT(proxy.start(), 0);
    const QString target = origin->url() + "/echo";
    const QByteArray proxyUrl = proxy.url().toUtf8();
    // The test environment exempts loopback from any proxy; start clean.
    std::vector<std::unique_ptr<ScopedEnv>> clean;
    for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"})
        clean.push_back(std::make_unique<ScopedEnv>(name, QByteArray()));

    // What a request saw: the target the proxy was asked for, or "" when it
    // went straight to the origin.
    const auto proxiedTarget = [](Nubra::Manager& manager) {
        const Observed o = VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"sn", "VS1"}}}});
        EXPECT_EQ(o.errors, 0) << o.map.value("message").toString().toStdString();
        const QVariantMap seen = o.map.value("result").toMap();
        EXPECT_TRUE(seen.contains("proxiedTarget") != seen.contains("method"));
        return seen.value("proxiedTarget").toString();
    };
    QTemporaryDir dir;
    {
        SCOPED_TRACE("configured proxy");
        Nubra::Manager manager;
        QJsonObject config = echoConfig(origin->url());
        config.insert("proxy", proxy.url());
        ASSERT_TRUE(VornTest::configure(manager, dir, config));
        EXPECT_EQ(proxiedTarget(manager), target);
    }
    {
        SCOPED_TRACE("no proxy anywhere");
        Nubra::Manager manager;
        ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(origin->url())));
        EXPECT_EQ(proxiedTarget(manager), QString());
        // The environment counts as it is when the configuration loads.
        const ScopedEnv later("http_proxy", proxyUrl);
        EXPECT_EQ(proxiedTarget(manager), QString());
    }
    {
        SCOPED_TRACE("http_proxy");
        const ScopedEnv env("http_proxy", proxyUrl);
        Nubra::Manager manager;
        ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(origin->url())));
        EXPECT_EQ(proxiedTarget(manager), target);
        const ScopedEnv exempt("no_proxy", "127.0.0.1");
        EXPECT_EQ(proxiedTarget(manager), QString());
    }
}

// Pooled connections that the server closes: while idle (the client keeps
// watching their sockets between requests) and right after an answer
// (every second request here). The client neither spins on the dead
// socket, nor warns about it, nor fails the next request.
TEST(HttpApi, serverClosesPooledConnections)
{
    EchoServer server;
    server.server.set_keep_alive_max_count(2);
    server.server.set_keep_alive_timeout(1);
    server.server.Post("/echo", echo);
    ASSERT_GT(server.start(), 0);
    QTemporaryDir dir;
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(server.url())));

    static QAtomicInt socketWarnings;
    socketWarnings = 0;
    const QtMessageHandler previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
        if (text.contains(QLatin1String("QSocketNotifier")))
            ++socketWarnings;
    });
    int wakeUps = 0;
    const QMetaObject::Connection counting = QObject::connect(QAbstractEventDispatcher::instance(),
                                                              &QAbstractEventDispatcher::aboutToBlock, [&] { ++wakeUps; });
    QSet<int> ports;
    int idleWakeUps = 0;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 5; ++i) {
            const Observed o = VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"round", round}, {"i", i}}}});
            ASSERT_EQ(o.errors, 0) << "round " << round << " request " << i;
            ASSERT_EQ(o.finished, 1);
            ports.insert(o.map.value("result").toMap().value("port").toInt());
        }
        // Idle past the server's keep-alive time-out: it closes the pooled
        // connection under the client's eyes.
        wakeUps = 0;
        QEventLoop idle;
        QTimer::singleShot(1600, &idle, &QEventLoop::quit);
        idle.exec();
        idleWakeUps = std::max(idleWakeUps, wakeUps);
    }
    QObject::disconnect(counting);
    qInstallMessageHandler(previous);
    EXPECT_GE(ports.size(), 9) << "the server closes every second connection; ports seen: " << ports.size();
    EXPECT_LT(idleWakeUps, 100) << "the event loop spun while a closed connection sat in the pool";
    EXPECT_EQ(int(socketWarnings), 0);
}

// abort(), stop(), deleting a running reply, and deleting the reply
// outright from inside its own signals: each ends cleanly.
TEST(HttpApi, cancellingAndDeletingReplies)
{
    auto server = startEchoServer();
    QTemporaryDir dir;
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(server->url())));

    for (const bool useStop : {false, true}) {
        SCOPED_TRACE(useStop ? "stop()" : "abort()");
        Nubra::Reply* reply = manager.request("slow", {{"body", QVariantMap()}}, {});
        ASSERT_EQ(reply->status(), 0);
        QTimer::singleShot(50, reply, [reply, useStop] { useStop ? reply->stop() : reply->abort(); });
        const Observed o = VornTest::observe(reply);
        EXPECT_EQ(o.finished, 1);
        EXPECT_EQ(o.errors, 1);
        EXPECT_EQ(o.error, Error::Cancelled);
    }

    // Deleted while running: no signal, no crash, the next request works.
    {
        const int started = g_slowStarted;
        const int answered = g_slowAnswered;
        Nubra::Reply* reply = manager.request("slow", {{"body", QVariantMap()}}, {});
        int emitted = 0;
        QObject::connect(reply, &Nubra::Reply::finished, [&emitted] { ++emitted; });
        ASSERT_TRUE(VornTest::waitUntil([&] { return g_slowStarted > started; }, 5000));
        delete reply;
        // The answer the deleted reply would have had is on its way back.
        ASSERT_TRUE(VornTest::waitUntil([&] { return g_slowAnswered > answered; }, 5000));
        VornTest::deliverQueued(3);
        EXPECT_EQ(emitted, 0);
    }

    // Deleted outright by a receiver of errorOccurred, finished or sslErrorOccurred.
    struct Case {
        const char* what;
        const char* name;
        bool inError;
    };
    const Case cases[] = {{"finished of a success", "echoPost", false},
                          {"errorOccurred of an HTTP error", "broken", true},
                          {"finished of an HTTP error", "broken", false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        QPointer<Nubra::Reply> reply = manager.request(c.name, {{"body", QVariantMap()}}, {});
        QEventLoop loop;
        bool deleted = false;
        auto kill = [&] {
            delete reply.data();
            deleted = true;
            loop.quit();
        };
        if (c.inError)
            QObject::connect(reply, &Nubra::Reply::errorOccurred, kill);
        else
            QObject::connect(reply, &Nubra::Reply::finished, kill);
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        loop.exec();
        EXPECT_TRUE(deleted);
        EXPECT_TRUE(reply.isNull());
    }
    const Observed after = VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"ok", 1}}}});
    EXPECT_EQ(after.map.value("status").toString(), "success");
}

// Tokens, passwords and bodies never reach the client's log, also with
// debug logging on and on failures.
TEST(HttpApi, secretsAreNotLogged)
{
    auto server = startEchoServer();
    QTemporaryDir dir;
    Nubra::Manager manager;
    ASSERT_TRUE(VornTest::configure(manager, dir, echoConfig(server->url())));

    static QMutex mutex;
    static QStringList messages;
    QLoggingCategory::setFilterRules(QStringLiteral("nubra*.debug=true"));
    const QtMessageHandler previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& m) {
        QMutexLocker lock(&mutex);
        messages << m;
    });
    const QString token = "tok-4f1d9a7e", password = "pw-88c2b6", secret = "body-secret-193";
    const QVariantMap record{{"headers", QVariantMap{{"X-Auth-Token", token}}},
                             {"params", QVariantMap{{"token", token}, {"access_key", secret}}},
                             {"body", QVariantMap{{"password", password}, {"note", secret}}}};
    for (const char* name : {"echoPost", "echoGet", "broken"})
        VornTest::run(manager, name, record);
    qInstallMessageHandler(previous);
    QLoggingCategory::setFilterRules(QString());

    QMutexLocker lock(&mutex);
    EXPECT_FALSE(messages.isEmpty()) << "debug logging produced nothing to check";
    for (const QString& m : messages) {
        EXPECT_FALSE(m.contains(token)) << m.toStdString();
        EXPECT_FALSE(m.contains(password)) << m.toStdString();
        EXPECT_FALSE(m.contains(secret)) << m.toStdString();
    }
}

// A self-signed certificate is rejected with the matching TLS error, and
// accepted once it is named as the configuration's "caFile".
TEST(HttpApi, tlsVerification)
{
    QTemporaryDir dir;
    const QString cert = dir.filePath("cert.pem"), key = dir.filePath("key.pem");
    ASSERT_TRUE(VornTest::makeSelfSignedCertificate(cert, key)) << "openssl could not make a certificate";
    VornTest::LocalServer<httplib::SSLServer> server(cert.toLocal8Bit().constData(), key.toLocal8Bit().constData());
    ASSERT_TRUE(server.server.is_valid());
    server.server.Post("/echo", echo);
    ASSERT_GT(server.start(), 0);

    Nubra::Manager manager;
    QJsonObject config = echoConfig(server.url("https"));
    ASSERT_TRUE(VornTest::configure(manager, dir, config, "untrusted.json"));
    const Observed rejected = VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"a", 1}}}});
    EXPECT_EQ(rejected.finished, 1);
    EXPECT_EQ(rejected.errors, 1);
    EXPECT_EQ(rejected.error, Error::SslCertificateRejected);
    EXPECT_EQ(rejected.sslErrorSignals, 1);
    ASSERT_EQ(rejected.sslErrors.size(), 1);
    EXPECT_EQ(rejected.sslErrors.first().error(), QSslError::SelfSignedCertificate);

    config.insert("caFile", "cert.pem"); // relative to the configuration file
    ASSERT_TRUE(VornTest::configure(manager, dir, config, "trusted.json"));
    const Observed accepted = VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"a", 1}}}});
    EXPECT_EQ(accepted.errors, 0) << accepted.map.value("message").toString().toStdString();
    EXPECT_EQ(accepted.sslErrorSignals, 0);
    EXPECT_EQ(accepted.map.value("status").toString(), "success");

    // A trusted certificate for another name: the chain is fine, the name
    // is not.
    const QString otherCert = dir.filePath("other.pem"), otherKey = dir.filePath("other-key.pem");
    ASSERT_TRUE(VornTest::makeSelfSignedCertificate(otherCert, otherKey, QStringLiteral("localhost")));
    VornTest::LocalServer<httplib::SSLServer> otherServer(otherCert.toLocal8Bit().constData(),
                                                          otherKey.toLocal8Bit().constData());
    ASSERT_TRUE(otherServer.server.is_valid());
    otherServer.server.Post("/echo", echo);
    ASSERT_GT(otherServer.start(), 0);
    QJsonObject otherConfig = echoConfig(otherServer.url("https"));
    otherConfig.insert("caFile", "other.pem");
    ASSERT_TRUE(VornTest::configure(manager, dir, otherConfig, "other.json"));
    const Observed misnamed = VornTest::run(manager, "echoPost", {{"body", QVariantMap{{"a", 1}}}});
    EXPECT_EQ(misnamed.errors, 1);
    EXPECT_EQ(misnamed.error, Error::SslCertificateRejected);
    ASSERT_EQ(misnamed.sslErrors.size(), 1);
    EXPECT_EQ(misnamed.sslErrors.first().error(), QSslError::HostNameMismatch)
        << misnamed.map.value("message").toString().toStdString();
}
