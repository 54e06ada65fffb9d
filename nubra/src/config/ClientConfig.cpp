// SPDX-License-Identifier: MIT
#include "config/ClientConfig.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Nubra {

namespace {
constexpr int kMaxConfigBytes = 4 * 1024 * 1024;
const QString kBaseUrl = QStringLiteral("baseUrl");
const QString kRequests = QStringLiteral("requests");
const QString kRegions = QStringLiteral("regions");
const QString kTimeout = QStringLiteral("timeout");
} // namespace

int ClientConfig::timeoutToMs(const QVariant& value, int fallbackMs)
{
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok || std::isnan(number) || number <= 0)
        return fallbackMs;
    constexpr int kOneDayMs = 24 * 3600 * 1000;
    // Rounded up: a tiny positive time-out must not become 0, which curl
    // reads as "no limit".
    const double ms = number < 1000 ? std::ceil(number * 1000) : std::ceil(number);
    return ms > kOneDayMs ? kOneDayMs : int(ms);
}

int ClientConfig::requestTimeoutMs(const QVariant& option, int defaultMs)
{
    const int callerMs = timeoutToMs(option, -1);
    if (callerMs < 0)
        return defaultMs;
    // Qt's coarse timers may fire up to 5 % late; the quarter second covers
    // a busy event loop.
    const qint64 withGrace = qint64(callerMs) + callerMs / 20 + 250;
    return int(std::min<qint64>(withGrace, std::numeric_limits<int>::max()));
}

bool ClientConfig::loadFile(const QString& path, Error::ErrorCode* error, QString* message)
{
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        *error = Error::ConfigMissing;
        *message = QStringLiteral("cannot read configuration file '%1': %2")
                       .arg(path, path.isEmpty() ? QStringLiteral("no path") : file.errorString());
        return false;
    }
    if (file.size() > kMaxConfigBytes) {
        *error = Error::ConfigMalformed;
        *message = QStringLiteral("configuration file '%1' is larger than 4 MiB").arg(path);
        return false;
    }
    QJsonParseError parseError{};
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !doc.isObject()) {
        *error = Error::ConfigMalformed;
        *message = parseError.error != QJsonParseError::NoError
                       ? QStringLiteral("configuration file '%1' is not valid JSON: %2 at offset %3")
                             .arg(path, parseError.errorString())
                             .arg(parseError.offset)
                       : QStringLiteral("configuration file '%1' does not hold a JSON object").arg(path);
        return false;
    }
    const QString previousPath = m_path;
    m_path = QFileInfo(path).absoluteFilePath();
    if (!loadMap(doc.object().toVariantMap(), message)) {
        m_path = previousPath;
        *error = Error::ConfigMalformed;
        *message = QStringLiteral("configuration file '%1': %2").arg(path, *message);
        return false;
    }
    return true;
}

bool ClientConfig::loadMap(const QVariantMap& map, QString* message)
{
    if (map.contains(kBaseUrl)) {
        const QUrl url(map.value(kBaseUrl).toString());
        if (!url.isValid() || (url.scheme() != QLatin1String("http") && url.scheme() != QLatin1String("https"))) {
            *message = QStringLiteral("\"baseUrl\" must be an http or https URL");
            return false;
        }
    }
    if (map.contains(kRequests)) {
        if (map.value(kRequests).userType() != QMetaType::QVariantMap) {
            *message = QStringLiteral("\"requests\" must be an object");
            return false;
        }
        const QVariantMap requests = map.value(kRequests).toMap();
        for (auto it = requests.begin(); it != requests.end(); ++it) {
            const QVariantMap entry = it.value().toMap();
            if (!entry.value(QStringLiteral("path")).toString().startsWith(QLatin1Char('/'))) {
                *message = QStringLiteral("request \"%1\" needs a \"path\" starting with '/'").arg(it.key());
                return false;
            }
        }
    }
    m_data = map;
    rebuildCache();
    m_timeoutFromFile = map.contains(kTimeout);
    if (m_timeoutFromFile)
        m_defaultTimeoutMs = timeoutToMs(map.value(kTimeout), m_defaultTimeoutMs);
    return true;
}

void ClientConfig::merge(const QVariantMap& entries)
{
    for (auto it = entries.begin(); it != entries.end(); ++it)
        m_data.insert(it.key(), it.value());
    rebuildCache();
    if (entries.contains(kTimeout))
        m_defaultTimeoutMs = timeoutToMs(entries.value(kTimeout), m_defaultTimeoutMs);
}

void ClientConfig::setDefaultTimeout(const QVariant& value)
{
    // A time-out written in the file is the deployer's choice and wins over
    // the application's default.
    if (!m_timeoutFromFile)
        m_defaultTimeoutMs = timeoutToMs(value, m_defaultTimeoutMs);
}

void ClientConfig::rebuildCache()
{
    m_baseUrl.reset();
    const QUrl base(m_data.value(kBaseUrl).toString());
    if (!base.isEmpty() && base.isValid())
        m_baseUrl = base;
    m_routes.clear();
    const QVariantMap requests = m_data.value(kRequests).toMap();
    for (auto it = requests.begin(); it != requests.end(); ++it) {
        const QVariantMap entry = it.value().toMap();
        RequestRoute route;
        route.method = entry.value(QStringLiteral("method"), QStringLiteral("POST")).toString().toUpper().toLatin1();
        route.path = entry.value(QStringLiteral("path")).toString();
        if (m_baseUrl) {
            route.url = join(*m_baseUrl, route.path);
            route.encodedUrl = route.url.toEncoded();
        }
        m_routes.insert(it.key(), route);
    }
    const QString ca = m_data.value(QStringLiteral("caFile")).toString();
    m_caFile = ca.isEmpty() ? QString() : resolvePath(ca);
    m_proxy = m_data.value(QStringLiteral("proxy")).toString();
    // The variables libcurl reads for a proxy (it ignores an upper-case
    // HTTP_PROXY). Without any of them transfers are told to go direct,
    // which spares curl reading the environment again for every request.
    m_environmentProxy = false;
    for (const char* name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
        if (!qEnvironmentVariableIsEmpty(name))
            m_environmentProxy = true;
    }
}

QUrl ClientConfig::join(const QUrl& base, const QString& pathOrUrl)
{
    // Only a URL with a scheme stands on its own: "//host/x" is a path
    // below the base like any other. (A route's path has no ':' as a rule:
    // no parsing then.)
    if (pathOrUrl.contains(QLatin1Char(':'))) {
        const QUrl given(pathOrUrl);
        if (given.isValid() && !given.isRelative())
            return given;
    }
    const int query = pathOrUrl.indexOf(QLatin1Char('?'));
    QUrl url = base;
    const QString basePath = url.path().endsWith(QLatin1Char('/')) ? url.path().chopped(1) : url.path();
    url.setPath(basePath + (query < 0 ? pathOrUrl : pathOrUrl.left(query)));
    if (query >= 0)
        url.setQuery(pathOrUrl.mid(query + 1));
    return url;
}

std::optional<QUrl> ClientConfig::baseUrl(const QString& region) const
{
    if (region.isEmpty())
        return m_baseUrl;
    const QString text = m_data.value(kRegions).toMap().value(region).toString();
    if (text.isEmpty())
        return std::nullopt;
    QUrl url(text);
    if (!url.isValid())
        return std::nullopt;
    return url;
}

std::optional<RequestRoute> ClientConfig::route(const QString& name) const
{
    const auto it = m_routes.constFind(name);
    if (it == m_routes.constEnd())
        return std::nullopt;
    return *it;
}

int ClientConfig::defaultTimeoutMs() const { return m_defaultTimeoutMs; }

int ClientConfig::stallSeconds() const
{
    const int ms = timeoutToMs(m_data.value(QStringLiteral("stallTimeout")), 30000);
    return ms < 1000 ? 1 : ms / 1000;
}

qint64 ClientConfig::minimumRate() const
{
    bool ok = false;
    const qint64 rate = m_data.value(QStringLiteral("minimumRate")).toLongLong(&ok);
    return ok && rate > 0 ? rate : kDefaultMinimumRate;
}

QString ClientConfig::caFile() const { return m_caFile; }

QString ClientConfig::proxy() const { return m_proxy; }

QVariantMap ClientConfig::section(const QString& name) const { return m_data.value(name).toMap(); }

QString ClientConfig::resolvePath(const QString& path) const
{
    if (path.isEmpty() || QFileInfo(path).isAbsolute() || m_path.isEmpty())
        return path;
    return QFileInfo(m_path).absoluteDir().filePath(path);
}

} // namespace Nubra
