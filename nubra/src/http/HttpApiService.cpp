// SPDX-License-Identifier: MIT
#include "http/HttpApiService.h"

#include "config/ClientConfig.h"
#include "core/LocalReply.h"
#include "http/ApiReply.h"
#include "http/CurlTransfer.h"
#include "http/TransferSetup.h"

#include <Nubra/Manager.h>

namespace Nubra {

namespace {

bool isValidHeaderName(const QString& name)
{
    if (name.isEmpty())
        return false;
    for (QChar c : name) {
        const ushort u = c.unicode();
        if (u <= 32 || u >= 127 || c == QLatin1Char(':'))
            return false;
    }
    return true;
}

bool isValidHeaderValue(const QString& value)
{
    return !value.contains(QLatin1Char('\r')) && !value.contains(QLatin1Char('\n'));
}

} // namespace

HttpApiService::HttpApiService(const ClientContext& context)
    : m_context(context)
{
}

bool HttpApiService::handles(const QString& name) const { return m_context.config->route(name).has_value(); }

Reply* HttpApiService::start(const RequestContext& request)
{
    const ClientConfig& config = *m_context.config;
    QObject* parent = m_context.manager;
    const auto route = config.route(request.name);
    if (!route)
        return LocalReply::refused(request.name, Error::UnknownRequest,
                                   QStringLiteral("unknown request \"%1\"").arg(request.name), parent);
    const auto base = config.baseUrl(request.extra);
    if (!base) {
        return LocalReply::refused(request.name,
                                   request.extra.isEmpty() ? Error::NotConfigured : Error::InvalidArgument,
                                   request.extra.isEmpty()
                                       ? QStringLiteral("no \"baseUrl\" configured")
                                       : QStringLiteral("unknown region \"%1\"").arg(request.extra),
                                   parent);
    }
    // A region's URL is read as given: only http(s) is spoken, refused here
    // before any connection rather than by curl on a later turn.
    const QString baseProblem = webUrlProblem(*base);
    if (!baseProblem.isEmpty())
        return LocalReply::refused(request.name, Error::InvalidArgument,
                                   QStringLiteral("base URL: ") + baseProblem, parent);

    const QVariantMap params = request.record.value(QStringLiteral("params")).toMap();
    const QVariantMap body = request.record.value(QStringLiteral("body")).toMap();
    const bool isGet = route->method == "GET";
    // The usual request (default region, no query) uses the URL prepared
    // with the configuration.
    const bool prepared = request.extra.isEmpty() && !route->encodedUrl.isEmpty() && params.isEmpty() &&
                          (!isGet || body.isEmpty());
    QUrl url = prepared ? route->url : ClientConfig::join(*base, route->path);
    if (!prepared) {
        appendQuery(url, params);
        if (isGet)
            appendQuery(url, body);
    }

    auto* reply = new ApiReply(request.name, m_context.curl, parent);
    reply->setUrlForLog(url);
    CurlTransfer& transfer = reply->transfer();
    if (prepared)
        transfer.setEndpointUrl(route->encodedUrl);
    else
        transfer.setUrl(url);
    transfer.setMethod(route->method);
    applyConfig(transfer, config);
    transfer.setTimeoutMs(ClientConfig::requestTimeoutMs(request.options.value(QStringLiteral("timeout")),
                                                         config.defaultTimeoutMs()));
    const QVariantMap headers = request.record.value(QStringLiteral("headers")).toMap();
    bool ownAccept = false, ownType = false;
    for (auto it = headers.begin(); it != headers.end(); ++it) {
        const QString value = it.value().toString();
        if (!isValidHeaderName(it.key()) || !isValidHeaderValue(value)) {
            delete reply; // not started: nobody has heard of it
            return LocalReply::refused(request.name, Error::InvalidArgument,
                                       QStringLiteral("invalid header \"%1\"").arg(it.key()), parent);
        }
        ownAccept = ownAccept || it.key().compare(QLatin1String("Accept"), Qt::CaseInsensitive) == 0;
        ownType = ownType || it.key().compare(QLatin1String("Content-Type"), Qt::CaseInsensitive) == 0;
        transfer.addHeader(it.key().toLatin1(), value.toUtf8());
    }
    // The shared JSON headers end every request; a header the caller gives
    // itself replaces the default one (curl would send both).
    reply->call().setJsonHeaders(!isGet, ownAccept, ownType);
    const QString source = request.record.value(QStringLiteral("source")).toString();
    if (!source.isEmpty() && isValidHeaderValue(source))
        transfer.addHeader("X-Nubra-Source", source.toUtf8());

    if (!isGet)
        reply->call().setJsonBody(body);

    if (!reply->start()) {
        reply->setParent(nullptr);
        delete reply;
        return LocalReply::refused(request.name, Error::RequestErrorOther,
                                   QStringLiteral("cannot start HTTP transfer"), parent);
    }
    return reply;
}

} // namespace Nubra
