// SPDX-License-Identifier: MIT
#include "upgrade/CloudJsonCall.h"

#include "config/ClientConfig.h"
#include "http/CurlErrorMap.h"
#include "http/CurlTransfer.h"
#include "http/TransferSetup.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

namespace Nubra {

CloudJsonCall::CloudJsonCall(const ClientContext& context, const QString& routeName, const QString& fallbackPath,
                             const QVariantMap& body, QObject* parent)
    : QObject(parent)
    , m_context(context)
    , m_routeName(routeName)
    , m_fallbackPath(fallbackPath)
    , m_body(body)
{
}

QUrl CloudJsonCall::resolve(const ClientContext& context, const QString& pathOrUrl)
{
    const QUrl given(pathOrUrl);
    if (given.isValid() && !given.isRelative())
        return given;
    const auto base = context.config->baseUrl(QString());
    if (!base)
        return {};
    QUrl url = *base;
    const QString basePath = url.path().endsWith(QLatin1Char('/')) ? url.path().chopped(1) : url.path();
    const int query = pathOrUrl.indexOf(QLatin1Char('?'));
    url.setPath(basePath + (query < 0 ? pathOrUrl : pathOrUrl.left(query)));
    if (query >= 0)
        url.setQuery(pathOrUrl.mid(query + 1));
    return url;
}

void CloudJsonCall::start()
{
    const auto route = m_context.config->route(m_routeName);
    const QUrl url = resolve(m_context, route ? route->path : m_fallbackPath);
    if (!url.isValid() || url.isEmpty()) {
        QMetaObject::invokeMethod(
            this, [this] { report(Error::NotConfigured, QStringLiteral("no \"baseUrl\" configured"), {}); },
            Qt::QueuedConnection);
        return;
    }
    auto* transfer = new CurlTransfer(m_context.curl, this);
    m_transfer = transfer;
    transfer->setUrl(url);
    transfer->setMethod("POST");
    applyConfig(*transfer, *m_context.config);
    transfer->setTimeoutMs(m_context.config->defaultTimeoutMs());
    transfer->addHeader("Accept", "application/json");
    transfer->addHeader("Content-Type", "application/json");
    transfer->setBody(QJsonDocument(QJsonObject::fromVariantMap(m_body)).toJson(QJsonDocument::Compact));
    transfer->setBodySink([this](const char* data, size_t size) {
        if (m_answer.size() + qint64(size) > kMaxAnswerBytes)
            return false;
        m_answer.append(data, int(size));
        return true;
    });
    connect(transfer, &CurlTransfer::completed, this, &CloudJsonCall::completed);
    if (!transfer->start()) {
        QMetaObject::invokeMethod(
            this, [this] { report(Error::RequestErrorOther, QStringLiteral("cannot start HTTP transfer"), {}); },
            Qt::QueuedConnection);
    }
}

void CloudJsonCall::cancel()
{
    m_done = true;
    if (m_transfer)
        m_transfer->cancel();
}

void CloudJsonCall::completed(int curlCode)
{
    const long http = m_transfer->httpStatus();
    m_httpStatus = int(http);
    if (curlCode != CURLE_OK) {
        if (m_answer.size() >= kMaxAnswerBytes) {
            report(Error::InvalidResponse, QStringLiteral("answer larger than %1 bytes").arg(kMaxAnswerBytes), {});
            return;
        }
        const auto failure = m_transfer->failure(curlCode);
        report(failure.code, failure.message, {});
        return;
    }
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(m_answer, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        report(http >= 400 ? Error::HttpError : Error::InvalidResponse,
               QStringLiteral("answer is not a JSON object (HTTP %1)").arg(http), {});
        return;
    }
    const QVariantMap answer = document.object().toVariantMap();
    if (answer.value(QStringLiteral("status")).toString() != QLatin1String("success")) {
        const QString message = answer.value(QStringLiteral("message")).toString();
        report(http >= 400 ? Error::HttpError : Error::ProtocolErrorOther,
               message.isEmpty() ? QStringLiteral("the cloud answered a failure (HTTP %1)").arg(http) : message,
               answer);
        return;
    }
    report(Error::NoError, QString(), answer.value(QStringLiteral("result")).toMap());
}

void CloudJsonCall::report(Error::ErrorCode code, const QString& message, const QVariantMap& result)
{
    if (m_done)
        return;
    m_done = true;
    emit done(code, message, result);
}

} // namespace Nubra
