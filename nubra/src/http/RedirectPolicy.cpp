// SPDX-License-Identifier: MIT
#include "http/RedirectPolicy.h"

#include <curl/curl.h>

#include <memory>

namespace Nubra {

namespace {

struct Origin {
    QByteArray scheme, host, port;
    bool operator==(const Origin& other) const
    {
        return scheme == other.scheme && host == other.host && port == other.port;
    }
};

using UrlHandle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

QByteArray part(CURLU* url, CURLUPart which)
{
    char* value = nullptr;
    if (curl_url_get(url, which, &value, CURLU_DEFAULT_PORT) != CURLUE_OK)
        return {};
    QByteArray copy(value);
    curl_free(value);
    return copy.toLower(); // schemes and host names compare without case
}

bool parse(const QByteArray& base, const QByteArray& relative, Origin* origin)
{
    UrlHandle url(curl_url(), &curl_url_cleanup);
    // Any scheme, so that a refusal can name the one it refuses.
    if (!url || curl_url_set(url.get(), CURLUPART_URL, base.constData(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
        return false;
    // The flags curl uses itself when it follows a Location.
    if (!relative.isNull()
        && curl_url_set(url.get(), CURLUPART_URL, relative.constData(),
                        CURLU_URLENCODE | CURLU_ALLOW_SPACE | CURLU_NON_SUPPORT_SCHEME)
            != CURLUE_OK)
        return false;
    origin->scheme = part(url.get(), CURLUPART_SCHEME);
    origin->host = part(url.get(), CURLUPART_HOST);
    origin->port = part(url.get(), CURLUPART_PORT);
    return !origin->scheme.isEmpty();
}

QString text(const Origin& origin)
{
    return QString::fromLatin1(origin.scheme + "://" + origin.host + ':' + origin.port);
}

} // namespace

bool isWebScheme(const QString& scheme)
{
    return scheme.compare(QLatin1String("http"), Qt::CaseInsensitive) == 0
        || scheme.compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
}

QString originOf(const QByteArray& url)
{
    Origin origin;
    return parse(url, QByteArray(), &origin) ? text(origin) : QString();
}

RedirectRefusal checkRedirect(RedirectPolicy policy, const QByteArray& firstUrl, const QByteArray& currentUrl,
                              const QByteArray& location)
{
    Origin first, current, target;
    if (!parse(firstUrl, QByteArray(), &first) || !parse(currentUrl, QByteArray(), &current)
        || !parse(currentUrl, location.trimmed(), &target))
        return {Error::ProtocolErrorOther, QStringLiteral("redirect to an unreadable location refused")};
    if (!isWebScheme(QString::fromLatin1(target.scheme)))
        return {Error::InvalidArgument,
                QStringLiteral("redirect to unsupported scheme \"%1\" refused (only http and https)")
                    .arg(QString::fromLatin1(target.scheme))};
    if (current.scheme == "https" && target.scheme == "http")
        return {Error::ProtocolErrorOther,
                QStringLiteral("redirect from https to http refused (%1)").arg(text(target))};
    if (policy == RedirectPolicy::SameOrigin && !(target == first))
        return {Error::ProtocolErrorOther,
                QStringLiteral("redirect to another origin refused (%1, request went to %2)")
                    .arg(text(target), text(first))};
    return {};
}

} // namespace Nubra
