// SPDX-License-Identifier: MIT
#include "core/LocalReply.h"

namespace Nubra {

LocalReply::LocalReply(const QString& requestName, QObject* parent)
    : Reply(requestName, parent)
{
}

LocalReply* LocalReply::succeeding(const QString& requestName, const QVariantMap& result, QObject* parent)
{
    auto* reply = new LocalReply(requestName, parent);
    QMetaObject::invokeMethod(
        reply, [reply, result] { reply->finishWith(result); }, Qt::QueuedConnection);
    return reply;
}

LocalReply* LocalReply::refused(const QString& requestName, Error::ErrorCode code, const QString& message,
                                QObject* parent)
{
    auto* reply = new LocalReply(requestName, parent);
    reply->setStatus(int(code));
    reply->failLater(code, message);
    return reply;
}

LocalReply* LocalReply::failing(const QString& requestName, Error::ErrorCode code, const QString& message,
                                QObject* parent)
{
    auto* reply = new LocalReply(requestName, parent);
    reply->failLater(code, message);
    return reply;
}

} // namespace Nubra
