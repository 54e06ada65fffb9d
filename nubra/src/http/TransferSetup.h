// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QUrl>
#include <QVariantMap>

namespace Nubra {

class ClientConfig;
class CurlTransfer;

// Settings every HTTP transfer takes from the configuration: CA file, proxy.
void applyConfig(CurlTransfer& transfer, const ClientConfig& config);

// Appends the entries of a variant map to the URL's query, every key and
// value percent-encoded (lists repeat the key).
void appendQuery(QUrl& url, const QVariantMap& params);

// Header names that carry secrets; their values never reach our logs.
bool isSecretName(const QString& name);
// The URL without user information and fragment, every query value replaced
// by "***": the query carries tokens and, for GET requests, the request body.
QString redactedUrl(const QUrl& url);

// Why the client will not fetch a URL (empty when it will): not a valid
// absolute URL, or a scheme other than http and https. Names the scheme,
// never the URL (it may carry secrets).
QString webUrlProblem(const QUrl& url);

} // namespace Nubra
