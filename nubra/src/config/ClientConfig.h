// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Error.h>

#include <QHash>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <optional>

namespace Nubra {

// How one request name travels over HTTP.
struct RequestRoute {
    QByteArray method; // "GET", "POST", "PUT", "DELETE"
    QString path;      // absolute path below the base URL, e.g. "/api/v1/user/login"
    // The path joined to "baseUrl", and its encoded form: most requests go
    // to the default region without a query, and then need no URL work.
    QUrl url;
    QByteArray encodedUrl;
};

// The client's configuration: a JSON object read from a file (see
// docs/configuration.md) and amended by setConfigData(). Plain data, no
// signals; services read it when they start a request, so a new
// configuration applies to the next request.
class ClientConfig {
public:
    // Environment variable that overrides the configuration path.
    static constexpr const char* kPathOverride = "NUBRA_CONFIG";

    // Reads and validates a file. On failure the current configuration is
    // kept and error/message describe why.
    bool loadFile(const QString& path, Error::ErrorCode* error, QString* message);
    // Validates a whole configuration object.
    bool loadMap(const QVariantMap& map, QString* message);
    // Replaces the named top-level entries.
    void merge(const QVariantMap& entries);

    QVariantMap data() const { return m_data; }
    QString path() const { return m_path; }
    bool isLoaded() const { return !m_data.isEmpty(); }

    // Base URL for a region; the empty region is "baseUrl".
    std::optional<QUrl> baseUrl(const QString& region) const;
    std::optional<RequestRoute> route(const QString& name) const;
    // The client's one URL join: a path (a route's, or one the cloud
    // handed out) below a base URL, the trailing slash of the base dropped
    // and what follows a '?' made the query; an absolute URL (with a
    // scheme) as it is.
    static QUrl join(const QUrl& base, const QString& pathOrUrl);

    // Default time-out of requests that carry none, in milliseconds.
    int defaultTimeoutMs() const;
    void setDefaultTimeout(const QVariant& value);
    // Stall period of long transfers (no byte moved), in seconds.
    int stallSeconds() const;
    // The lowest average rate (bytes/s) over the stall period that keeps a
    // long transfer going ("minimumRate", default kDefaultMinimumRate).
    qint64 minimumRate() const;
    static constexpr qint64 kDefaultMinimumRate = 1024;

    QString caFile() const;
    QString proxy() const;
    // Whether the environment named a proxy for curl when this
    // configuration was loaded (http_proxy, https_proxy, all_proxy...).
    bool environmentNamesProxy() const { return m_environmentProxy; }
    // A top-level section, e.g. "mqtt", "upgrade", "disk".
    QVariantMap section(const QString& name) const;
    // Resolves a path from the configuration relative to the file's folder.
    QString resolvePath(const QString& path) const;

    // One rule for every "timeout" value the client receives: numbers below
    // 1000 are seconds, 1000 and above are milliseconds. Zero, negative and
    // non-numeric values give fallbackMs.
    static int timeoutToMs(const QVariant& value, int fallbackMs);

    // The transfer time-out of a request whose options may carry the
    // caller's own "timeout": that time-out plus a grace (a twentieth of it
    // and a quarter of a second), else defaultMs. A caller that waits with
    // a timer of the same length (the blocking calls do) then always sees
    // its own timer fire first, instead of racing the transfer's failure;
    // the transfer still ends for sure.
    static int requestTimeoutMs(const QVariant& option, int defaultMs);

private:
    // Parsed once per configuration: every request needs them.
    void rebuildCache();

    QVariantMap m_data;
    std::optional<QUrl> m_baseUrl;
    QString m_caFile;
    QString m_proxy;
    bool m_environmentProxy = false;
    QHash<QString, RequestRoute> m_routes;
    QString m_path;
    int m_defaultTimeoutMs = 30000;
    bool m_timeoutFromFile = false;
};

} // namespace Nubra
