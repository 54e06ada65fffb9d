// SPDX-License-Identifier: MIT
#pragma once

// Talks to a dev cloud over loopback, synchronously, for what a test does
// beside the library: its test controls (faults, counters, catalogue
// changes, broker), publishing messages and signing in.

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTimer>

namespace VornTest {

class CloudAdmin {
public:
    // caFile: the certificate authority to trust (a dev cloud run with --tls).
    explicit CloudAdmin(QString baseUrl, const QString& caFile = {})
        : m_base(std::move(baseUrl))
    {
        if (!caFile.isEmpty()) {
            m_ssl = QSslConfiguration::defaultConfiguration();
            m_ssl.addCaCertificates(caFile);
        }
    }

    // Sends a request and returns the answer's JSON object (empty on
    // failure); lastStatus() is its HTTP status (0 without an answer).
    QJsonObject call(const QByteArray& method, const QString& path, const QJsonObject& body = {})
    {
        QNetworkRequest request(QUrl(m_base + path));
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        if (!m_ssl.isNull())
            request.setSslConfiguration(m_ssl);
        QNetworkReply* reply = m_network.sendCustomRequest(
            request, method, method == "GET" ? QByteArray() : QJsonDocument(body).toJson(QJsonDocument::Compact));
        QEventLoop loop;
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        QTimer::singleShot(90000, &loop, &QEventLoop::quit);
        if (!reply->isFinished())
            loop.exec();
        m_lastStatus = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        const QJsonObject answer = QJsonDocument::fromJson(reply->readAll()).object();
        reply->deleteLater();
        return answer;
    }
    int lastStatus() const { return m_lastStatus; }
    // POST; true on HTTP 200.
    bool post(const QString& path, const QJsonObject& body = {})
    {
        call("POST", path, body);
        return m_lastStatus == 200;
    }

    // Signs the demo user in; returns the token.
    QString signIn()
    {
        return call("POST", "/api/v1/user/login", {{"account", "demo@vorn.example"}, {"password", "scan3d!"}})
            .value("result")
            .toObject()
            .value("token")
            .toString();
    }
    // Publishes through the cloud (acknowledged by the broker before it answers).
    bool publish(const QString& topic, const QJsonObject& payload)
    {
        return post("/devcloud/publish", {{"topic", topic}, {"payload", payload}});
    }

    QJsonObject package(const QString& model, const QString& version)
    {
        return call("POST", "/api/v1/upgrade/package", {{"modelCode", model}, {"version", version}})
            .value("result")
            .toObject();
    }
    // One counter of GET /devcloud/stats for a URL path: "bytesServed",
    // "rangeBytesServed" (what resumes fetched), "rangeRequests".
    qint64 stat(const QString& path, const QString& counter)
    {
        const QJsonObject answer = call("GET", "/devcloud/stats");
        return qint64(answer["result"]["files"][path][counter].toDouble());
    }
    void armFault(const QString& path, const QJsonObject& fault)
    {
        QJsonObject body = fault;
        body.insert("path", path);
        call("POST", "/devcloud/transfer-faults", body);
    }
    void clearFaults() { call("DELETE", "/devcloud/transfer-faults"); }

private:
    QString m_base;
    QSslConfiguration m_ssl;
    QNetworkAccessManager m_network;
    int m_lastStatus = 0;
};

} // namespace VornTest
