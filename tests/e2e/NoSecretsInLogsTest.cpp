// SPDX-License-Identifier: MIT
// Every log channel on, every kind of secret used, and none of them in any
// log: glog files at the most verbose level, every Qt debug category, and
// vorn --verbose (which copies both to standard error). The secrets are a
// password, a user token, an upload token, and a download URL's user
// information and query values (the helper logs the download's item name at
// every progress report).

#include <GlogCapture.h>
#include <TestFiles.h>
#include <Waiting.h>
#include <VornNubraHelper.h>

#include <glog/logging.h>

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMutex>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

using NubraCommon::VornCloudDiskInterface;
using NubraCommon::VornUserAccountInterface;

namespace {

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }

const QString kAccount = QStringLiteral("demo@vorn.example");
const QString kPassword = QStringLiteral("scan3d!");
const QString kWrongPassword = QStringLiteral("wrong-pw-5b1e");

// A download URL of the shared cloud with user information and a query.
QString secretUrl(const QString& name)
{
    QUrl url(VornTest::readJsonObject(QString::fromLocal8Bit(qgetenv("NUBRA_CONFIG"))).value("baseUrl").toString());
    url.setUserName(QStringLiteral("urluser-41c7"));
    url.setPassword(QStringLiteral("urlpw-9d02"));
    url.setPath(QStringLiteral("/files/") + name);
    url.setQuery(QStringLiteral("token=qtoken-77a1&signature=qsig-3e8f"));
    return url.toString();
}
const QStringList kUrlSecrets{"urluser-41c7", "urlpw-9d02", "qtoken-77a1", "qsig-3e8f"};

QMutex g_mutex;
QStringList g_qtLines;

// Lines of text holding any of the secrets, with where they were found.
QStringList leaks(const QString& where, const QString& text, const QStringList& secrets)
{
    QStringList found;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        for (const QString& secret : secrets) {
            if (!secret.isEmpty() && line.contains(secret)) {
                found << where + ": " + line;
                break;
            }
        }
    }
    return found;
}

QVariantMap disk(VornCloudDiskInterface iface, const QVariantMap& body, const QVariantMap& params,
                 const QString& token)
{
    QVariantMap result;
    helper()->VornCloudDiskRequest(iface, result, body, params, {{"X-Auth-Token", token}}, QStringLiteral("logs"));
    return result;
}

} // namespace

TEST(NoSecretsInLogs, helperWithGlogFilesAndEveryQtCategory)
{
    ASSERT_FALSE(qgetenv("NUBRA_CONFIG").isEmpty()) << "run through ctest: the dev cloud fixture sets NUBRA_CONFIG";
    QTemporaryDir logs, work;
    ASSERT_TRUE(logs.isValid() && work.isValid());
    FLAGS_log_dir = logs.path().toStdString();
    FLAGS_logtostderr = false;
    FLAGS_v = 3; // what GLOG_v=3 sets
    google::InitGoogleLogging("no-secrets");
    VornTest::GlogCapture glog;
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=true"));
    const QtMessageHandler previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext& context,
                                                                const QString& text) {
        QMutexLocker lock(&g_mutex);
        g_qtLines << QString::fromLatin1(context.category ? context.category : "") + ' ' + text;
    });

    // Sign in (and fail once), then every kind of call with the token.
    QVariantMap answer;
    EXPECT_EQ(helper()->post(NubraCommon::Interface::UserLogin, {{"account", kAccount}, {"password", kWrongPassword}}, answer,
                             {}, 10000),
              NubraCommon::ResponseFailed);
    ASSERT_EQ(helper()->post(NubraCommon::Interface::UserLogin, {{"account", kAccount}, {"password", kPassword}}, answer, {},
                             10000),
              NubraCommon::Success);
    const QString token = answer.value("token").toString();
    ASSERT_FALSE(token.isEmpty());
    helper()->setUserToken(token);
    helper()->post(NubraCommon::Interface::GetUserProfile, {{"userID", 1001}}, answer, {}, 10000);
    QVariantMap account;
    helper()->VornUserAccountRequest(VornUserAccountInterface::UserLogin, account,
                                     {{"account", kAccount}, {"password", kPassword}}, {}, {}, {}, "logs");

    const QVariantMap encoded = disk(VornCloudDiskInterface::SdkDynamicEncodeToken, {}, {}, token);
    const QString uploadToken = encoded.value("result").toMap().value("uploadToken").toString();
    EXPECT_FALSE(uploadToken.isEmpty());
    const QString upload = work.filePath("scan.bin");
    ASSERT_TRUE(VornTest::writePatternFile(upload, 200000, 'u'));
    disk(VornCloudDiskInterface::UploadCloudSpaceFile, {}, {{"files", QStringList{upload}}, {"uploadToken", uploadToken}},
         token);
    const QVariantMap uploaded = disk(VornCloudDiskInterface::StartUploadStart, {}, {}, token);
    EXPECT_EQ(uploaded.value("status").toString(), "success");

    const QString downloaded = work.filePath("manual.pdf");
    ASSERT_EQ(helper()->downloadFile(secretUrl("scanner-manual.pdf"), downloaded), NubraCommon::Success);
    EXPECT_TRUE(VornTest::waitUntil([&] { return QFileInfo::exists(downloaded); }, 30000));
    // A failing download reports too; its only sign is the helper's log line.
    const auto failures = [&glog] {
        return glog.texts().filter(QStringLiteral("Nubra Get ErrorOccurred")).size();
    };
    const int failedBefore = failures();
    helper()->downloadFile(secretUrl("no-such-file.bin"), work.filePath("missing.bin"));
    EXPECT_TRUE(VornTest::waitUntil([&] { return failures() > failedBefore; }, 30000));

    EXPECT_EQ(helper()->setSoftwareAutoUpgrade("VS-200", "1.0.0", "release", "en", work.filePath("packages")),
              NubraCommon::Success);
    QVariantMap info;
    helper()->checkSoftwareUpgrade("VS-200", info);
    EXPECT_EQ(helper()->startDownloadSoftware("VS-200", "1.2.0"), NubraCommon::Success);
    helper()->subscribe(kAccount, {}, {QStringLiteral("device/logs-test")}, 1500);
    helper()->disconnectFromServer();

    qInstallMessageHandler(previous);
    QLoggingCategory::setFilterRules(QString());
    google::FlushLogFiles(google::GLOG_INFO);

    const QStringList secrets = QStringList{kPassword, kWrongPassword, token, uploadToken} + kUrlSecrets;
    QStringList found;
    int glogFiles = 0;
    bool sawProgress = false;
    for (QDirIterator it(logs.path(), QDir::Files); it.hasNext();) {
        QFile file(it.next());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        ++glogFiles;
        const QString text = QString::fromUtf8(file.readAll());
        sawProgress = sawProgress || text.contains(QLatin1String("result:http"));
        found += leaks(QFileInfo(file).fileName(), text, secrets);
    }
    QMutexLocker lock(&g_mutex);
    found += leaks(QStringLiteral("Qt message"), g_qtLines.join(QLatin1Char('\n')), secrets);
    EXPECT_GT(glogFiles, 0) << "glog wrote no file to check";
    EXPECT_GT(g_qtLines.size(), 10) << "Qt debug logging produced too little to check";
    EXPECT_TRUE(sawProgress) << "no download progress line (the item name) in the glog files";
    EXPECT_TRUE(found.isEmpty()) << found.join(QLatin1Char('\n')).toStdString();
}

#ifdef VORN_CLI_BINARY
// vorn --verbose copies the helper's glog records and every Qt debug line to
// standard error; GLOG_v and QT_LOGGING_RULES turn everything on.
TEST(NoSecretsInLogs, vornVerbose)
{
    QTemporaryDir work;
    ASSERT_TRUE(work.isValid());
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("GLOG_v", "3");
    env.insert("QT_LOGGING_RULES", "*.debug=true");
    const auto vorn = [&](const QStringList& args, const QString& token = QString()) {
        QProcess process;
        QProcessEnvironment withToken = env;
        if (!token.isEmpty())
            withToken.insert("VORN_TOKEN", token);
        process.setProcessEnvironment(withToken);
        process.start(QStringLiteral(VORN_CLI_BINARY), QStringList{"--verbose"} + args);
        EXPECT_TRUE(process.waitForFinished(60000)) << args.join(' ').toStdString();
        return std::make_pair(QString::fromUtf8(process.readAllStandardOutput()),
                              QString::fromUtf8(process.readAllStandardError()));
    };

    const auto login = vorn({"--json", "login", kAccount, kPassword});
    const QString token = QJsonDocument::fromJson(login.first.toUtf8()).object().value("result").toObject()
                              .value("token").toString();
    ASSERT_FALSE(token.isEmpty()) << login.second.toStdString();
    const QStringList secrets = QStringList{kPassword, kWrongPassword, token} + kUrlSecrets;
    // The login's answer (standard output) is the token itself: only its
    // log lines count.
    QStringList found = leaks("login stderr", login.second, secrets);
    const QString upload = work.filePath("scan.bin");
    ASSERT_TRUE(VornTest::writePatternFile(upload, 100000, 'v'));
    const QList<QStringList> commands{
        {"login", kAccount, kWrongPassword},
        {"post", "GetUserProfile", "userID:=1001"},
        {"account", "getUserProfile", "userID:=1001"},
        {"upload", upload},
        {"download", secretUrl("calibration-board.bin"), work.filePath("board.bin")},
        {"download", secretUrl("no-such-file.bin"), work.filePath("missing.bin")},
    };
    for (const QStringList& args : commands) {
        const auto run = vorn(args, token);
        EXPECT_FALSE(run.second.isEmpty()) << "no log output to check for " << args.join(' ').toStdString();
        found += leaks(args.join(' ') + " stderr", run.second, secrets);
        // Standard output is the command's answer, not a log: it may repeat
        // what the command line gave (vorn download prints its URL).
        QStringList notGiven;
        for (const QString& secret : secrets)
            if (!args.join(' ').contains(secret))
                notGiven << secret;
        found += leaks(args.join(' ') + " stdout", run.first, notGiven);
    }
    EXPECT_TRUE(found.isEmpty()) << found.join(QLatin1Char('\n')).toStdString();
}
#endif
