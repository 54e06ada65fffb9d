#include "BrokerTestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QEventLoop>
#include <QProcess>
#include <QTimer>
#include <QUrl>

#include <gtest/gtest.h>
#include <httplib.h>

#include <memory>

namespace BrokerTest {

namespace {

class CloudEnvironment : public ::testing::Environment {
public:
    void SetUp() override
    {
        process = std::make_unique<VornTest::DevCloudProcess>();
        ASSERT_TRUE(process->start()) << process->output().toStdString();
        qputenv("NUBRA_CONFIG", process->configPath().toLocal8Bit());
    }
    void TearDown() override { process.reset(); }
    std::unique_ptr<VornTest::DevCloudProcess> process;
};

CloudEnvironment* g_environment =
    static_cast<CloudEnvironment*>(::testing::AddGlobalTestEnvironment(new CloudEnvironment));

std::unique_ptr<httplib::Client> httpClient()
{
    const QUrl url(cloud().baseUrl());
    auto client = std::make_unique<httplib::Client>(url.host().toStdString(), url.port());
    client->set_read_timeout(90, 0);
    return client;
}

bool postJson(const QString& path, const QJsonObject& body, QJsonObject* answer = nullptr)
{
    auto client = httpClient();
    const auto result = client->Post(path.toStdString().c_str(),
                                     QJsonDocument(body).toJson(QJsonDocument::Compact).toStdString(),
                                     "application/json");
    if (!result)
        return false;
    if (answer)
        *answer = QJsonDocument::fromJson(QByteArray::fromStdString(result->body)).object();
    return result->status == 200;
}

} // namespace

VornTest::DevCloudProcess& cloud() { return *g_environment->process; }

QJsonObject mqttSection()
{
    QFile file(cloud().configPath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object().value("mqtt").toObject();
}

bool mosquittoPub(const QString& topic, const QList<QByteArray>& payloads)
{
    const QJsonObject mqtt = mqttSection();
    const QJsonObject account = mqtt.value("devcloud").toObject();
    QProcess pub;
    // -l: one message per line of standard input, over one connection.
    pub.start("mosquitto_pub", {"-h", mqtt.value("host").toString(), "-p", QString::number(mqtt.value("port").toInt()),
                                "-u", account.value("publisherUsername").toString(), "-P",
                                account.value("publisherPassword").toString(), "-t", topic, "-q", "1", "-l"});
    if (!pub.waitForStarted(5000))
        return false;
    for (const QByteArray& payload : payloads)
        pub.write(payload + '\n');
    pub.closeWriteChannel();
    if (!pub.waitForFinished(15000))
        return false;
    return pub.exitStatus() == QProcess::NormalExit && pub.exitCode() == 0;
}

bool publishOverHttp(const QString& topic, const QJsonObject& payload)
{
    return postJson("/devcloud/publish", {{"topic", topic}, {"payload", payload}});
}

bool postAdmin(const QString& path, const QJsonObject& body) { return postJson(path, body); }

QString signIn()
{
    QJsonObject answer;
    postJson("/api/v1/user/login", {{"account", "demo@vorn.example"}, {"password", "scan3d!"}}, &answer);
    return answer.value("result").toObject().value("token").toString();
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs)
{
    if (done())
        return true;
    QDeadlineTimer deadline(timeoutMs);
    QEventLoop loop;
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout, &loop, [&] {
        if (done() || deadline.hasExpired())
            loop.quit();
    });
    tick.start(5);
    loop.exec();
    return done();
}

} // namespace BrokerTest
