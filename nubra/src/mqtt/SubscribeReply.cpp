// SPDX-License-Identifier: MIT
#include "mqtt/SubscribeReply.h"

#include "mqtt/ConnectReply.h"

#include <QVariantList>

#include <mosquitto.h>

namespace Nubra {

SubscribeReply::SubscribeReply(const QString& requestName, const QStringList& filters, int qos, QObject* parent)
    : Reply(requestName, parent)
    , m_filters(filters)
    , m_qos(qos)
{
    for (const QString& filter : m_filters)
        m_encodedFilters.push_back(filter.toUtf8());
}

SubscribeReply::~SubscribeReply()
{
    if (m_connection)
        m_connection->removeSubscription(this);
}

bool SubscribeReply::matches(const QString& topic) const
{
    const QByteArray encoded = topic.toUtf8();
    for (const QByteArray& filter : m_encodedFilters) {
        bool result = false;
        if (mosquitto_topic_matches_sub(filter.constData(), encoded.constData(), &result) == MOSQ_ERR_SUCCESS
            && result)
            return true;
    }
    return false;
}

void SubscribeReply::acknowledged(const QList<int>& granted)
{
    QVariantList topics;
    QVariantList grantedList;
    bool rejected = false;
    for (const QString& filter : m_filters)
        topics.append(filter);
    for (int qos : granted) {
        grantedList.append(qos);
        rejected = rejected || qos >= 0x80;
    }
    if (rejected) {
        if (m_connection)
            m_connection->removeSubscription(this);
        failWith(Error::SubscribeRejected, QStringLiteral("the broker refused the subscription"),
                 {{QStringLiteral("result"), QVariantMap{{QStringLiteral("topic"), topics},
                                                         {QStringLiteral("qos"), grantedList}}}});
        return;
    }
    emit subscribed(topics, uchar(granted.isEmpty() ? m_qos : granted.first()));
    finishWith({{QStringLiteral("status"), QStringLiteral("success")},
                {QStringLiteral("result"),
                 QVariantMap{{QStringLiteral("topic"), topics}, {QStringLiteral("qos"), grantedList}}}});
}

void SubscribeReply::connectionEnded(Error::ErrorCode code, const QString& message)
{
    m_connection = nullptr;
    emit disconnected();
    failWith(code, message);
}

void SubscribeReply::onAbort(const QString& item)
{
    if (!item.isEmpty())
        return;
    if (m_connection)
        m_connection->removeSubscription(this);
    m_connection = nullptr;
    failWith(Error::Cancelled, QStringLiteral("subscription aborted"));
}

} // namespace Nubra
