// SPDX-License-Identifier: MIT
#include "DevCloudAdmin.h"

#include <curl/curl.h>

#include <memory>

namespace {

size_t collect(char* data, size_t size, size_t count, void* target)
{
    static_cast<QByteArray*>(target)->append(data, int(size * count));
    return size * count;
}

} // namespace

DevCloudAdmin::DevCloudAdmin(QString baseUrl)
    : m_baseUrl(std::move(baseUrl))
{
}

QJsonDocument DevCloudAdmin::call(const QByteArray& method, const QString& path, const QJsonDocument& body,
                                  QString* error) const
{
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
    if (!curl) {
        *error = QStringLiteral("libcurl could not start");
        return {};
    }
    const QByteArray url = (m_baseUrl + path).toUtf8();
    const QByteArray payload = body.isNull() ? QByteArray("{}") : body.toJson(QJsonDocument::Compact);
    QByteArray answer;
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.constData());
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, 10000L);
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer);
    if (method == "POST") {
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, payload.constData());
        curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, long(payload.size()));
    }
    const CURLcode result = curl_easy_perform(curl.get());
    curl_slist_free_all(headers);
    long status = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    if (result != CURLE_OK) {
        *error = QStringLiteral("%1 %2: %3").arg(QString::fromLatin1(method), path,
                                                QString::fromUtf8(curl_easy_strerror(result)));
        return {};
    }
    const QJsonDocument document = QJsonDocument::fromJson(answer);
    if (status >= 400 || document.isNull()) {
        *error = QStringLiteral("%1 %2: HTTP %3 %4").arg(QString::fromLatin1(method), path).arg(status).arg(
            QString::fromUtf8(answer.left(200)));
        return {};
    }
    return document;
}
