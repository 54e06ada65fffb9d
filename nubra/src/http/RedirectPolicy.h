// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Error.h>

#include <QByteArray>
#include <QString>

namespace Nubra {

// Where a transfer may be redirected. libcurl sends a request's own headers
// (X-Auth-Token, X-Upload-Token, ...) and, after a 307/308, its body to
// whatever host a Location names, so every Location is checked before curl
// follows it (CurlTransfer's header callback).
enum class RedirectPolicy {
    // API calls and uploads: only to the origin (scheme, host, port) of the
    // first URL; the caller's headers and body never leave it.
    SameOrigin,
    // Downloads: any http or https origin, but never from https to http.
    AnyOriginNoDowngrade,
};

// Why a redirect is refused; code NoError when it may be followed.
struct RedirectRefusal {
    Error::ErrorCode code = Error::NoError;
    QString message;
};

// Checks a Location header seen on a 3xx answer to currentUrl (the URL of
// this hop), for a transfer that started at firstUrl. The target is parsed
// with curl's own URL parser, as curl will follow it, so that no difference
// between two parsers can slip a host past the check.
RedirectRefusal checkRedirect(RedirectPolicy policy, const QByteArray& firstUrl, const QByteArray& currentUrl,
                              const QByteArray& location);

// "scheme://host:port" of a URL (no user information, path or query: safe
// to log), or empty when curl cannot parse it.
QString originOf(const QByteArray& url);

// Whether a scheme is one the client speaks (http, https; any case).
bool isWebScheme(const QString& scheme);

} // namespace Nubra
