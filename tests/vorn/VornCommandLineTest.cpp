// SPDX-License-Identifier: MIT
// vorn against the shared dev cloud: every kind of outcome gives a clear
// message and the exit status scripts rely on, in text and in JSON.

#include "LocalServer.h"
#include "TestFiles.h"
#include "VornProcess.h"
#include "TestCertificate.h"


#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

const QString kAccount = QStringLiteral("account=demo@vorn.example");
const QString kPassword = QStringLiteral("password=scan3d!");

struct Case {
    const char* name;
    QStringList args;
    int exitStatus;
    const char* stdoutHas; // "" for no check
    const char* stderrHas;
};

} // namespace

TEST(VornCommandLine, eachOutcomeHasItsExitStatusAndMessage)
{
    const QList<Case> cases{
        {"sign-in succeeds", {"post", "UserLogin", kAccount, kPassword}, 0, "post userLogin: Success (0)", ""},
        {"request name works like the enumerator", {"post", "userlogin", kAccount, kPassword}, 0, "Success (0)", ""},
        {"wrong password is a failed response", {"post", "UserLogin", kAccount, "password=wrong"}, 6,
         "ResponseFailed (6)", ""},
        {"missing body key is refused by the helper", {"post", "GetUserProfile"}, 3, "MissingField (3)", ""},
        // --param takes one value: userID is a body field again (the cloud then refuses the placeholder token).
        {"fields after a --param are body fields", {"post", "GetUserProfile", "-p", "x=1", "userID:=1001"}, 6,
         "ResponseFailed (6)", ""},
        {"unknown interface name", {"post", "NoSuchRequest"}, 4, "", "unknown interface 'NoSuchRequest'"},
        {"number outside the catalogue", {"post", "7"}, 4, "UnknownInterface (4)", ""},
        {"malformed field", {"post", "UserLogin", "account"}, 64, "", "is not key=value"},
        {"field with bad JSON", {"post", "UserLogin", "n:=nope"}, 64, "", "is not JSON"},
        {"unknown option", {"post", "UserLogin", "--frobnicate"}, 64, "", "frobnicate"},
        {"no subcommand", {}, 64, "", "subcommand"},
        {"negative time-out", {"post", "UserLogin", "--timeout", "-5"}, 64, "", "timeout"},
        {"missing @file", {"post", "UserLogin", "@/nonexistent/vorn-body.json"}, 66, "", "cannot read"},
        {"connection dropped mid-answer", {"get", "FetchCountries", "devcloudFault=drop"}, 7, "TransportError (7)", ""},
        {"answer later than the time-out", {"post", "UserLogin", "devcloudFault=delay=3000", "--timeout", "300"}, 1,
         "Timeout (1)", ""},
        {"config file that does not exist", {"--config", "/nonexistent/config.json", "post", "UserLogin"}, 69, "",
         "no cloud configured"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const VornRun run = runVorn(c.args);
        ASSERT_FALSE(run.crashed) << describe(run);
        EXPECT_EQ(run.exitStatus, c.exitStatus) << describe(run);
        EXPECT_TRUE(run.out.contains(QString::fromUtf8(c.stdoutHas))) << describe(run);
        EXPECT_TRUE(run.err.contains(QString::fromUtf8(c.stderrHas), Qt::CaseInsensitive)) << describe(run);
    }
}

TEST(VornCommandLine, missingCloudIsNamedWithTheWayOut)
{
    // No NUBRA_CONFIG and no file beside the binary.
    const VornRun run = runVorn({"post", "UserLogin"}, {{"NUBRA_CONFIG", ""}});
    EXPECT_EQ(run.exitStatus, 69) << describe(run);
    EXPECT_TRUE(run.err.contains("no cloud configured")) << describe(run);
    EXPECT_TRUE(run.err.contains("--config")) << describe(run);
    EXPECT_TRUE(run.out.isEmpty()) << describe(run);
}

TEST(VornCommandLine, configurationTheClientRejectsIsReported)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("config.json");
    ASSERT_TRUE(VornTest::writeFile(path, "this is not JSON"));
    const VornRun run = runVorn({"--config", path, "post", "UserLogin"});
    EXPECT_EQ(run.exitStatus, 69) << describe(run);
    EXPECT_TRUE(run.err.contains("rejected")) << describe(run);
}

TEST(VornCommandLine, jsonOutputIsOneDocumentWithCodeMatchingExitStatus)
{
    const QList<QStringList> runs{
        {"post", "UserLogin", kAccount, kPassword},
        {"post", "UserLogin", kAccount, "password=wrong"},
        {"get", "FetchCountries"},
        {"postv2", "UserLogin", kAccount, kPassword},
        {"postv1", "GetUserProfile", "userID:=1001", "--header", "X-Auth-Token=nonsense"},
        {"post", "NoSuchRequest"},
        {"--config", "/nonexistent/config.json", "post", "UserLogin"},
        {"post", "UserLogin", "--frobnicate"},
        {"post"},
        {"interfaces"},
        {"codes"},
        {"config"},
    };
    for (const QStringList& args : runs) {
        SCOPED_TRACE(args.join(' ').toStdString());
        const VornRun run = runVorn(QStringList{"--json"} + args);
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(run.out.toUtf8(), &error);
        ASSERT_EQ(error.error, QJsonParseError::NoError) << describe(run);
        ASSERT_TRUE(document.isObject()) << describe(run);
        const QJsonObject object = document.object();
        if (object.contains("error")) {
            EXPECT_EQ(object.value("exitStatus").toInt(-1), run.exitStatus) << describe(run);
            continue;
        }
        EXPECT_EQ(object.value("code").toInt(-1), run.exitStatus) << describe(run);
        EXPECT_FALSE(object.value("codeName").toString().isEmpty()) << describe(run);
        EXPECT_TRUE(object.contains("result")) << describe(run);
    }
}

TEST(VornCommandLine, jsonResultCarriesTheCloudsAnswer)
{
    const VornRun login = runVorn({"--json", "post", "UserLogin", kAccount, kPassword});
    const QJsonObject answer = QJsonDocument::fromJson(login.out.toUtf8()).object();
    const QString token = answer.value("result").toObject().value("token").toString();
    ASSERT_FALSE(token.isEmpty()) << describe(login);

    // The token from one run signs the next one in (VORN_TOKEN, as a script would).
    const VornRun profile =
        runVorn({"--json", "post", "GetUserProfile", "userID:=1001"}, {{"VORN_TOKEN", token}});
    const QJsonObject result = QJsonDocument::fromJson(profile.out.toUtf8()).object().value("result").toObject();
    EXPECT_EQ(profile.exitStatus, 0) << describe(profile);
    EXPECT_EQ(result.value("account").toString(), "demo@vorn.example") << describe(profile);

    // Without it the placeholder token is sent and the cloud refuses.
    const VornRun refused = runVorn({"--json", "post", "GetUserProfile", "userID:=1001"}, {{"VORN_TOKEN", ""}});
    EXPECT_EQ(refused.exitStatus, 6) << describe(refused);
}

namespace {

// The shared cloud's configuration with another base URL, in dir.
QString configFor(const QTemporaryDir& dir, const QString& name, const QString& baseUrl)
{
    QJsonObject config = VornTest::readJsonObject(qEnvironmentVariable("NUBRA_CONFIG"));
    config.insert("baseUrl", baseUrl);
    const QString path = dir.filePath(name);
    return VornTest::writeFile(path, QJsonDocument(config).toJson()) ? path : QString();
}

} // namespace

// Each failure's one line names its cause, the same fields go into --json.
TEST(VornCommandLine, failuresNameTheirCause)
{
    QTemporaryDir dir;
    // A TLS server whose self-signed certificate the client must refuse.
    const QString cert = dir.filePath("cert.pem"), key = dir.filePath("key.pem");
    ASSERT_TRUE(VornTest::makeSelfSignedCertificate(cert, key));
    VornTest::LocalServer<httplib::SSLServer> tls(cert.toLocal8Bit().constData(), key.toLocal8Bit().constData());
    ASSERT_TRUE(tls.server.is_valid());
    ASSERT_GT(tls.start(), 0);
    // A port bound but not listening refuses connections, and stays ours.
    const int closedSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(::bind(closedSocket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::getsockname(closedSocket, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const int closedPort = ntohs(address.sin_port);

    struct Case {
        const char* name;
        QStringList args;
        int exitStatus;
        const char* lineHas;      // in the headline on stdout
        const char* causeField;   // a field of "cause" in --json ...
        QJsonValue causeValue;    // ... and its value
    };
    const QString refused = configFor(dir, "refused.json", QStringLiteral("http://127.0.0.1:%1").arg(closedPort));
    const QString untrusted = configFor(dir, "tls.json", tls.url("https"));
    const QList<Case> cases{
        {"the cloud's message and status", {"post", "UserLogin", kAccount, "password=wrong"}, 6,
         "ResponseFailed (6) - the cloud answered with a failure: HTTP 401 \"wrong account or password\"",
         "httpStatus", 401},
        {"connection refused", {"--config", refused, "post", "UserLogin", kAccount, kPassword}, 7,
         "TransportError (7) - the request failed on the way (network or protocol): ConnectionRefused (200): ",
         "clientErrorName", "ConnectionRefused"},
        {"certificate problem", {"--config", untrusted, "get", "FetchCountries"}, 7, "SslCertificateRejected (301): ",
         "clientError", 301},
        {"vorn's own time-out", {"post", "UserLogin", "devcloudFault=delay=3000", "--timeout", "300"}, 1,
         "Timeout (1) - no answer before the time-out: no answer within 0.3 s (--timeout 300)", "text",
         "no answer within 0.3 s (--timeout 300)"},
        {"missing field", {"post", "GetUserProfile"}, 3, "MissingField (3) - a field the request needs is missing: "
         "the request needs \"userID\"; nothing was sent", "text", "the request needs \"userID\"; nothing was sent"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const VornRun run = runVorn(c.args);
        EXPECT_EQ(run.exitStatus, c.exitStatus) << describe(run);
        EXPECT_TRUE(run.out.contains(QString::fromUtf8(c.lineHas))) << describe(run);
        const VornRun json = runVorn(QStringList{"--json"} + c.args);
        const QJsonObject cause = jsonOf(json).value("cause").toObject();
        EXPECT_EQ(cause.value(c.causeField), c.causeValue) << describe(json);
        EXPECT_FALSE(cause.value("text").toString().isEmpty()) << describe(json);
    }
    // The certificate problem is spelt out, as curl reports it.
    const VornRun certificate = runVorn({"--config", untrusted, "get", "FetchCountries"});
    EXPECT_TRUE(certificate.out.contains("certificate", Qt::CaseInsensitive)) << describe(certificate);
    ::close(closedSocket);
}
