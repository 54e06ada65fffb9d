// SPDX-License-Identifier: MIT
#include "mqtt/MessageService.h"

#include "config/ClientConfig.h"
#include "core/LocalReply.h"
#include "mqtt/ConnectReply.h"
#include "mqtt/MqttSession.h"
#include "mqtt/MqttSettings.h"
#include "mqtt/SubscribeReply.h"

#include <Nubra/Manager.h>

#include <mosquitto.h>

namespace Nubra {

namespace {
const QString kConnect = QStringLiteral("connectToServer");
const QString kSubscribe = QStringLiteral("subscribe");
const QString kDisconnect = QStringLiteral("disconnectFromServer");
} // namespace

MessageService::MessageService(const ClientContext& context)
    : m_context(context)
{
}

MessageService::~MessageService() = default;

bool MessageService::handles(const QString& name) const
{
    return name == kConnect || name == kSubscribe || name == kDisconnect;
}

Reply* MessageService::start(const RequestContext& request)
{
    if (request.name == kConnect)
        return connectToServer(request);
    if (request.name == kSubscribe)
        return subscribe(request);
    return disconnectFromServer(request);
}

Reply* MessageService::connectToServer(const RequestContext& request)
{
    QObject* parent = m_context.manager;
    MqttSettings settings;
    QString message;
    if (!MqttSettings::fromConfig(*m_context.config, &settings, &message))
        return LocalReply::refused(request.name, Error::NotConfigured, message, parent);
    if (request.options.contains(QStringLiteral("timeout")))
        settings.connectTimeoutMs =
            ClientConfig::timeoutToMs(request.options.value(QStringLiteral("timeout")), settings.connectTimeoutMs);

    // "serverAuthentication": 0 (or absent) connects without credentials,
    // 1 authenticates: user name = the record's "username" (the user token)
    // or the configured one, password = the configured "password" or else
    // the user name itself (a token is its own credential).
    MqttSession::Credentials credentials;
    const QVariant authentication = request.record.value(QStringLiteral("serverAuthentication"), 0);
    bool ok = false;
    const uint mode = authentication.toUInt(&ok);
    if (!ok || mode > 1)
        return LocalReply::refused(request.name, Error::InvalidArgument,
                                   QStringLiteral("\"serverAuthentication\" must be 0 or 1"), parent);
    if (mode == 1) {
        credentials.authenticate = true;
        credentials.username = request.record.value(QStringLiteral("username")).toString();
        if (credentials.username.isEmpty())
            credentials.username = settings.username;
        credentials.password = settings.password.isEmpty() ? credentials.username : settings.password;
    }

    // One connection per manager: a new one replaces the old.
    if (m_connection)
        m_connection->endSession();
    auto* session = new MqttSession(settings, credentials);
    auto* reply = new ConnectReply(request.name, session, parent);
    m_connection = reply;
    reply->start();
    return reply;
}

Reply* MessageService::subscribe(const RequestContext& request)
{
    QObject* parent = m_context.manager;
    if (!m_connection || m_connection->isEnded())
        return LocalReply::refused(request.name, Error::NotConnected,
                                   QStringLiteral("\"subscribe\" needs a live \"connectToServer\""), parent);
    const QVariant topicValue = request.record.value(QStringLiteral("topic"));
    QStringList filters;
    if (topicValue.userType() == QMetaType::QString) {
        filters.append(topicValue.toString());
    } else {
        for (const QVariant& topic : topicValue.toList()) {
            if (!topic.canConvert<QString>() || topic.toString().isEmpty())
                return LocalReply::refused(request.name, Error::InvalidArgument,
                                           QStringLiteral("every \"topic\" must be a non-empty string"), parent);
            filters.append(topic.toString());
        }
    }
    if (filters.isEmpty())
        return LocalReply::refused(request.name, Error::InvalidArgument, QStringLiteral("no \"topic\" given"),
                                   parent);
    for (const QString& filter : filters) {
        if (mosquitto_sub_topic_check2(filter.toUtf8().constData(), size_t(filter.toUtf8().size()))
            != MOSQ_ERR_SUCCESS)
            return LocalReply::refused(request.name, Error::InvalidArgument,
                                       QStringLiteral("invalid topic filter \"%1\"").arg(filter), parent);
    }
    bool ok = false;
    const int qos = request.record.value(QStringLiteral("qos"), 0).toInt(&ok);
    if (!ok || qos < 0 || qos > 2)
        return LocalReply::refused(request.name, Error::InvalidArgument, QStringLiteral("\"qos\" must be 0, 1 or 2"),
                                   parent);

    auto* reply = new SubscribeReply(request.name, filters, qos, parent);
    // SUBSCRIBE leaves from the event loop, so that no signal can come
    // before the caller has connected to the reply.
    QPointer<ConnectReply> connection = m_connection;
    QPointer<SubscribeReply> guard = reply;
    QMetaObject::invokeMethod(
        reply,
        [connection, guard] {
            if (!guard)
                return;
            if (!connection || connection->isEnded()) {
                guard->failed(Error::NotConnected, QStringLiteral("the connection ended"));
                return;
            }
            connection->addSubscription(guard);
        },
        Qt::QueuedConnection);
    return reply;
}

Reply* MessageService::disconnectFromServer(const RequestContext& request)
{
    const bool wasConnected = m_connection && !m_connection->isEnded();
    if (m_connection)
        m_connection->endSession();
    m_connection = nullptr;
    return LocalReply::succeeding(
        request.name,
        {{QStringLiteral("status"), QStringLiteral("success")},
         {QStringLiteral("result"), QVariantMap{{QStringLiteral("wasConnected"), wasConnected}}}},
        m_context.manager);
}

} // namespace Nubra
