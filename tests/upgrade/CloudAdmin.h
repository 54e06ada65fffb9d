#pragma once

// Talks to the dev cloud's test controls (faults, counters, catalogue
// changes) over loopback, synchronously.

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace VornTest {

class CloudAdmin {
public:
    explicit CloudAdmin(QString baseUrl) : m_base(std::move(baseUrl)) {}

    // Sends a request and returns the answer's JSON object (empty on failure).
    QJsonObject call(const QByteArray& method, const QString& path, const QJsonObject& body = {})
    {
        QNetworkRequest request(QUrl(m_base + path));
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        QNetworkReply* reply = m_network.sendCustomRequest(
            request, method, method == "GET" ? QByteArray() : QJsonDocument(body).toJson(QJsonDocument::Compact));
        QEventLoop loop;
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        loop.exec();
        const QJsonObject answer = QJsonDocument::fromJson(reply->readAll()).object();
        reply->deleteLater();
        return answer;
    }

    QJsonObject package(const QString& model, const QString& version)
    {
        return call("POST", "/api/v1/upgrade/package", {{"modelCode", model}, {"version", version}})
            .value("result")
            .toObject();
    }
    // One counter of GET /devcloud/stats for a URL path.
    qint64 stat(const QString& path, const QString& counter)
    {
        const QJsonObject answer = call("GET", "/devcloud/stats");
        return qint64(answer["result"]["files"][path][counter].toDouble());
    }
    // Bytes the cloud has sent of one file so far.
    qint64 bytesServed(const QString& path)
    {
        return stat(path, "bytesServed");
    }
    // Bytes sent in answers to range requests (what resumes fetched).
    qint64 rangeBytesServed(const QString& path)
    {
        return stat(path, "rangeBytesServed");
    }
    qint64 rangeRequests(const QString& path)
    {
        return stat(path, "rangeRequests");
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
    QNetworkAccessManager m_network;
};

} // namespace VornTest
