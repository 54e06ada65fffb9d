// SPDX-License-Identifier: MIT
#include "Router.h"

#include "Faults.h"
#include "Passwords.h"
#include "Store.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QUrlQuery>

namespace devcloud {

QJsonValue ApiCall::arg(const QString& key) const
{
    if (body.contains(key))
        return body.value(key);
    return query.value(key);
}

void writeJson(httplib::Response& response, int httpStatus, const QJsonObject& object)
{
    response.status = httpStatus;
    response.set_content(QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString(), "application/json");
}

void replySuccess(ApiCall& call, const QJsonValue& result)
{
    writeJson(call.response, 200, {{QStringLiteral("status"), QStringLiteral("success")}, {QStringLiteral("result"), result}});
}

void writeFailure(httplib::Response& response, int httpStatus, const QString& code, const QString& message)
{
    writeJson(response, httpStatus,
              {{QStringLiteral("status"), QStringLiteral("failure")},
               {QStringLiteral("code"), code},
               {QStringLiteral("message"), message}});
}

void replyFailure(ApiCall& call, int httpStatus, const QString& code, const QString& message)
{
    writeFailure(call.response, httpStatus, code, message);
}

ApiRouter::ApiRouter(httplib::Server& server, Store& store)
    : m_server(server)
    , m_store(store)
{
}

std::optional<User> ApiRouter::userForToken(const QString& token) const
{
    if (token.isEmpty())
        return std::nullopt;
    const auto rows = m_store.query(
        QStringLiteral("SELECT u.id, u.account, u.name FROM sessions s JOIN users u ON u.id = s.user_id "
                       "WHERE s.token_sha256 = ?1 AND s.expires_at > ?2"),
        {tokenHash(token), QDateTime::currentSecsSinceEpoch()});
    if (!rows || rows->empty())
        return std::nullopt;
    const auto& row = rows->front();
    return User{row[0].toLongLong(), row[1].toString(), row[2].toString()};
}

ApiRouter::BodyReading ApiRouter::bodyReading(const std::string& path) const
{
    if (m_paths.count(path) > 0)
        return BodyReading::Bounded;
    if (m_streamedPaths.count(path) > 0)
        return BodyReading::Streamed;
    return BodyReading::Whole;
}

namespace {

// Reads a body into memory, at most `limit` bytes: a chunked body announces
// no length, so the limit is applied as it arrives. False when the body is
// larger (*tooLarge set) or could not be read.
bool readBounded(const httplib::ContentReader& reader, size_t limit, std::string* body, bool* tooLarge)
{
    *tooLarge = false;
    return reader([&](const char* data, size_t length) {
        if (body->size() + length > limit) {
            *tooLarge = true;
            return false;
        }
        body->append(data, length);
        return true;
    });
}

} // namespace

void ApiRouter::add(const QString& name, const QString& method, const QString& path, Auth auth, Handler handler)
{
    m_table.insert(name, QJsonObject{{QStringLiteral("method"), method}, {QStringLiteral("path"), path}});
    m_paths.insert(path.toStdString());

    auto serve = [this, auth, handler](const httplib::Request& request, httplib::Response& response,
                                       const std::string& text) {
        QJsonObject query;
        for (const auto& param : request.params)
            query.insert(QString::fromStdString(param.first), QString::fromStdString(param.second));

        QJsonObject body;
        if (request.method == "GET") {
            body = query;
        } else if (!text.empty()) {
            QJsonParseError error{};
            const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(text), &error);
            if (error.error != QJsonParseError::NoError || !doc.isObject()) {
                writeFailure(response, 400, QStringLiteral("badRequest"),
                             QStringLiteral("request body must be a JSON object"));
                return;
            }
            body = doc.object();
        }

        if (applyFault(Fault::fromRequest(request, body), response))
            return;

        ApiCall call{request, response, body, query, std::nullopt};
        if (auth == Auth::Token) {
            call.user = userForToken(call.header("X-Auth-Token"));
            if (!call.user) {
                replyFailure(call, 401, QStringLiteral("unauthorized"),
                             QStringLiteral("missing, unknown or expired X-Auth-Token"));
                return;
            }
        }
        handler(call);
    };
    // Bodies are read here rather than by the HTTP server, which would read
    // a chunked body whole, however large.
    auto withBody = [serve](const httplib::Request& request, httplib::Response& response,
                            const httplib::ContentReader& reader) {
        std::string text;
        bool tooLarge = false;
        if (!readBounded(reader, kMaxBodyBytes, &text, &tooLarge)) {
            const int status = tooLarge ? 413 : 400;
            writeFailure(response, status, QStringLiteral("http%1").arg(status),
                         tooLarge ? QStringLiteral("request body too large (more than %1 bytes)").arg(kMaxBodyBytes)
                                  : QStringLiteral("the request body could not be read"));
            // The rest of the body is unread: the connection cannot carry
            // another request.
            response.set_header("Connection", "close");
            return;
        }
        serve(request, response, text);
    };

    const std::string pattern = path.toStdString();
    if (method == QLatin1String("GET"))
        m_server.Get(pattern, [serve](const httplib::Request& request, httplib::Response& response) {
            serve(request, response, std::string());
        });
    else if (method == QLatin1String("PUT"))
        m_server.Put(pattern, withBody);
    else if (method == QLatin1String("DELETE"))
        m_server.Delete(pattern, withBody);
    else
        m_server.Post(pattern, withBody);
}

} // namespace devcloud
