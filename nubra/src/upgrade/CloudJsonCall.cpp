// SPDX-License-Identifier: MIT
#include "upgrade/CloudJsonCall.h"

#include "config/ClientConfig.h"
#include "http/JsonCall.h"
#include "http/TransferSetup.h"

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

CloudJsonCall::~CloudJsonCall() = default;

QUrl CloudJsonCall::resolve(const ClientContext& context, const QString& pathOrUrl)
{
    const auto base = context.config->baseUrl(QString());
    const QUrl url = ClientConfig::join(base ? *base : QUrl(), pathOrUrl);
    return url.isRelative() ? QUrl() : url;
}

void CloudJsonCall::start()
{
    const auto base = m_context.config->baseUrl(QString());
    if (!base) {
        reportLater(Error::NotConfigured, QStringLiteral("no \"baseUrl\" configured"));
        return;
    }
    const auto route = m_context.config->route(m_routeName);
    m_call = std::make_unique<JsonCall>(m_context.curl);
    JsonCall& call = *m_call;
    call.setUrl(*base, route ? route->path : m_fallbackPath);
    call.transfer().setMethod("POST");
    applyConfig(call.transfer(), *m_context.config);
    call.transfer().setTimeoutMs(m_context.config->defaultTimeoutMs());
    call.setJsonHeaders(true);
    call.setJsonBody(m_body);
    call.setAnswerHandler([this](const JsonCall::Answer& answer) {
        m_httpStatus = answer.httpStatus;
        Error::ErrorCode code = Error::NoError;
        QString message;
        if (!JsonCall::cloudSucceeded(answer, &code, &message)) {
            report(code, message, answer.object);
            return;
        }
        report(Error::NoError, QString(), answer.object.value(QStringLiteral("result")).toMap());
    });
    if (!call.start())
        reportLater(Error::RequestErrorOther, QStringLiteral("cannot start HTTP transfer"));
}

void CloudJsonCall::cancel()
{
    m_done = true;
    if (m_call)
        m_call->cancel();
}

void CloudJsonCall::reportLater(Error::ErrorCode code, const QString& message)
{
    QMetaObject::invokeMethod(
        this, [this, code, message] { report(code, message, {}); }, Qt::QueuedConnection);
}

void CloudJsonCall::report(Error::ErrorCode code, const QString& message, const QVariantMap& result)
{
    if (m_done)
        return;
    m_done = true;
    emit done(code, message, result);
}

} // namespace Nubra
