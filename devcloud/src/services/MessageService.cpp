// SPDX-License-Identifier: MIT
// The message server of the dev cloud: a real mosquitto broker with
// checked credentials, an endpoint to publish to it, and admin endpoints to
// stop and restart it for tests.

#include "services/MessageService.h"

#include "Services.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>
#include <cstdio>
#include <thread>

namespace devcloud {

namespace {

constexpr int kMaxDownMs = 60000;

QJsonObject failure(const QString& code, const QString& message)
{
    return {{QStringLiteral("status"), QStringLiteral("failure")},
            {QStringLiteral("code"), code},
            {QStringLiteral("message"), message}};
}

bool parseBody(const httplib::Request& request, httplib::Response& response, QJsonObject* body)
{
    if (request.body.empty()) {
        *body = {};
        return true;
    }
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(request.body), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        writeJson(response, 400, failure(QStringLiteral("badRequest"), QStringLiteral("the body must be a JSON object")));
        return false;
    }
    *body = document.object();
    return true;
}

// "payload": a string travels as its UTF-8 text, any other JSON value as
// compact JSON; "payloadBase64" carries binary payloads.
bool payloadOf(const QJsonObject& body, QByteArray* payload, QString* message)
{
    if (body.contains(QStringLiteral("payloadBase64"))) {
        const auto decoded = QByteArray::fromBase64Encoding(body.value(QStringLiteral("payloadBase64")).toString().toLatin1(),
                                                            QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded) {
            *message = QStringLiteral("\"payloadBase64\" is not valid base64");
            return false;
        }
        *payload = *decoded;
        return true;
    }
    const QJsonValue value = body.value(QStringLiteral("payload"));
    if (value.isUndefined()) {
        *message = QStringLiteral("\"payload\" or \"payloadBase64\" is required");
        return false;
    }
    if (value.isString())
        *payload = value.toString().toUtf8();
    else if (value.isObject())
        *payload = QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact);
    else if (value.isArray())
        *payload = QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact);
    else // numbers, booleans, null: their JSON text
        *payload = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact).mid(1).chopped(1);
    return true;
}

} // namespace

MessageHub::MessageHub(Store& store, SessionTokens& sessions, bool tls)
    : m_store(store)
    , m_sessions(sessions)
    , m_broker(tls)
{
}

MessageHub::~MessageHub()
{
    m_publisher.reset();
    m_broker.stop();
}

bool MessageHub::start(QString* error)
{
    syncAccounts();
    if (!m_broker.start(error))
        return false;
    m_publisher = std::make_unique<BrokerPublisher>();
    if (!m_publisher->open(m_broker.host(), m_broker.port(), m_broker.publisherUsername(),
                           m_broker.publisherPassword(), m_broker.certificatePath(), error))
        return false;
    return reconnectPublisher(0, error);
}

bool MessageHub::reconnectPublisher(int connectsBefore, QString* error)
{
    if (!m_publisher->waitForConnectCount(connectsBefore, 10000)) {
        *error = QStringLiteral("the dev cloud's publisher could not connect to the broker");
        return false;
    }
    return true;
}

bool MessageHub::stopBroker()
{
    m_broker.stop();
    return true;
}

bool MessageHub::startBroker(QString* error)
{
    if (m_broker.isRunning())
        return true;
    const int connectsBefore = m_publisher ? m_publisher->connectCount() : 0;
    if (!m_broker.start(error))
        return false;
    return !m_publisher || reconnectPublisher(connectsBefore, error);
}

bool MessageHub::restart(int downMs, QString* error)
{
    m_broker.stop();
    if (downMs > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(downMs));
    return startBroker(error);
}

QStringList MessageHub::topicsOf(qint64 userId)
{
    QStringList topics{QStringLiteral("users/%1/#").arg(userId)};
    const auto rows =
        m_store.query(QStringLiteral("SELECT sn FROM devices WHERE user_id = ?1 ORDER BY sn"), {userId});
    if (rows)
        for (const auto& row : *rows)
            topics.append(QStringLiteral("devices/%1/#").arg(row[0].toString()));
    return topics;
}

void MessageHub::syncAccounts()
{
    std::lock_guard<std::mutex> lock(m_syncMutex);
    // The files depend on the tokens issued and on who owns which device.
    QString state = QString::number(m_sessions.issuedCount());
    const auto owners = m_store.query(QStringLiteral("SELECT sn, user_id FROM devices ORDER BY sn"));
    if (owners)
        for (const auto& row : *owners)
            state += QLatin1Char(' ') + row[0].toString() + QLatin1Char('=') + row[1].toString();
    if (state == m_lastSync)
        return;
    std::vector<BrokerAccount> accounts;
    for (const SessionTokens::Live& live : m_sessions.live())
        accounts.push_back({live.token, topicsOf(live.userId)});
    QString error;
    if (!m_broker.setAccounts(accounts, &error)) {
        std::fprintf(stderr, "nubra-devcloud: broker accounts not updated: %s\n", qPrintable(error));
        return;
    }
    m_lastSync = state;
}

bool MessageHub::publish(const QString& topic, const QByteArray& payload, int qos, bool retain, QString* error)
{
    if (!m_publisher) {
        *error = QStringLiteral("no broker");
        return false;
    }
    return m_publisher->publish(topic, payload, qos, retain, 5000, error);
}

std::unique_ptr<MessageHub> registerMessageService(ServiceContext& context, bool brokerTls)
{
    auto hub = std::make_unique<MessageHub>(context.store, context.sessions, brokerTls);
    QString error;
    if (!hub->start(&error)) {
        std::fprintf(stderr, "nubra-devcloud: no message broker: %s\n", qPrintable(error));
        return hub;
    }
    MessageHub* messages = hub.get();
    Broker& broker = hub->broker();

    QJsonObject mqtt{{QStringLiteral("host"), broker.host()},
                    {QStringLiteral("port"), broker.port()},
                    {QStringLiteral("keepAlive"), 30},
                    // For the dev cloud's tools and tests, not read by the client.
                    {QStringLiteral("devcloud"),
                     QJsonObject{{QStringLiteral("publisherUsername"), broker.publisherUsername()},
                                 {QStringLiteral("publisherPassword"), broker.publisherPassword()},
                                 {QStringLiteral("publishUrl"), context.baseUrl + QStringLiteral("/devcloud/publish")},
                                 {QStringLiteral("brokerLog"), broker.logPath()}}}};
    if (broker.tls()) {
        mqtt.insert(QStringLiteral("tls"), true);
        mqtt.insert(QStringLiteral("caFile"), broker.certificatePath());
    }
    context.configSections.insert(QStringLiteral("mqtt"), mqtt);

    // A token issued by any request (sign-in), and a device's new owner,
    // reach the broker before that request's answer leaves.
    context.server.set_post_routing_handler(
        [messages](const httplib::Request&, httplib::Response&) { messages->syncAccounts(); });

    context.server.Post("/devcloud/publish", [messages](const httplib::Request& request, httplib::Response& response) {
        QJsonObject body;
        if (!parseBody(request, response, &body))
            return;
        const QString topic = body.value(QStringLiteral("topic")).toString();
        QByteArray payload;
        QString message;
        if (topic.isEmpty() || topic.contains(QLatin1Char('+')) || topic.contains(QLatin1Char('#'))) {
            writeJson(response, 400, failure(QStringLiteral("badRequest"), QStringLiteral("\"topic\" must be a topic name")));
            return;
        }
        if (!payloadOf(body, &payload, &message)) {
            writeJson(response, 400, failure(QStringLiteral("badRequest"), message));
            return;
        }
        const int qos = body.value(QStringLiteral("qos")).toInt(1);
        if (qos < 0 || qos > 2) {
            writeJson(response, 400, failure(QStringLiteral("badRequest"), QStringLiteral("\"qos\" must be 0, 1 or 2")));
            return;
        }
        if (!messages->publish(topic, payload, qos, body.value(QStringLiteral("retain")).toBool(), &message)) {
            writeJson(response, 503, failure(QStringLiteral("brokerUnavailable"), message));
            return;
        }
        writeJson(response, 200,
                  {{QStringLiteral("status"), QStringLiteral("success")},
                   {QStringLiteral("result"),
                    QJsonObject{{QStringLiteral("topic"), topic}, {QStringLiteral("bytes"), payload.size()}}}});
    });

    auto brokerState = [messages] {
        return QJsonObject{{QStringLiteral("status"), QStringLiteral("success")},
                           {QStringLiteral("result"),
                            QJsonObject{{QStringLiteral("running"), messages->broker().isRunning()},
                                        {QStringLiteral("host"), messages->broker().host()},
                                        {QStringLiteral("port"), messages->broker().port()},
                                        {QStringLiteral("pid"), qint64(messages->broker().pid())}}}};
    };
    context.server.Get("/devcloud/broker", [brokerState](const httplib::Request&, httplib::Response& response) {
        writeJson(response, 200, brokerState());
    });
    context.server.Post("/devcloud/broker/stop", [messages, brokerState](const httplib::Request&, httplib::Response& response) {
        messages->stopBroker();
        writeJson(response, 200, brokerState());
    });
    context.server.Post("/devcloud/broker/start", [messages, brokerState](const httplib::Request&, httplib::Response& response) {
        QString why;
        if (!messages->startBroker(&why)) {
            writeJson(response, 503, failure(QStringLiteral("brokerUnavailable"), why));
            return;
        }
        writeJson(response, 200, brokerState());
    });
    context.server.Post("/devcloud/broker/restart",
                        [messages, brokerState](const httplib::Request& request, httplib::Response& response) {
                            QJsonObject body;
                            if (!parseBody(request, response, &body))
                                return;
                            const int downMs = qBound(0, body.value(QStringLiteral("downMs")).toInt(0), kMaxDownMs);
                            QString why;
                            if (!messages->restart(downMs, &why)) {
                                writeJson(response, 503, failure(QStringLiteral("brokerUnavailable"), why));
                                return;
                            }
                            writeJson(response, 200, brokerState());
                        });
    return hub;
}

} // namespace devcloud
