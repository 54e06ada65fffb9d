// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonDocument>
#include <QString>

// The demo's handle on its own dev cloud for what the library does not do
// itself: publishing a message, slowing a transfer down so that a pause can
// be seen, listing the files it serves. Plain blocking HTTP on loopback
// (libcurl), never used for the library's own requests.
class DevCloudAdmin {
public:
    explicit DevCloudAdmin(QString baseUrl);

    // method "GET" or "POST"; body is sent as JSON for POST. Returns the
    // answer's JSON, or a null document with *error set.
    QJsonDocument call(const QByteArray& method, const QString& path, const QJsonDocument& body,
                       QString* error) const;

private:
    QString m_baseUrl;
};
