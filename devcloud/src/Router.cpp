#include "Router.h"

#include "Faults.h"
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
        QStringLiteral("SELECT u.id, u.account, u.name FROM tokens t JOIN users u ON u.id = t.user_id "
                       "WHERE t.token = ?1 AND t.expires_at > ?2"),
        {token, QDateTime::currentSecsSinceEpoch()});
    if (!rows || rows->empty())
        return std::nullopt;
    const auto& row = rows->front();
    return User{row[0].toLongLong(), row[1].toString(), row[2].toString()};
}

void ApiRouter::add(const QString& name, const QString& method, const QString& path, Auth auth, Handler handler)
{
    m_table.insert(name, QJsonObject{{QStringLiteral("method"), method}, {QStringLiteral("path"), path}});
    m_paths.insert(path.toStdString());

    auto wrapped = [this, auth, handler](const httplib::Request& request, httplib::Response& response) {
        QJsonObject query;
        for (const auto& param : request.params)
            query.insert(QString::fromStdString(param.first), QString::fromStdString(param.second));

        QJsonObject body;
        if (request.method == "GET") {
            body = query;
        } else if (!request.body.empty()) {
            QJsonParseError error{};
            const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(request.body), &error);
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

    const std::string pattern = path.toStdString();
    if (method == QLatin1String("GET"))
        m_server.Get(pattern, wrapped);
    else if (method == QLatin1String("PUT"))
        m_server.Put(pattern, wrapped);
    else if (method == QLatin1String("DELETE"))
        m_server.Delete(pattern, wrapped);
    else
        m_server.Post(pattern, wrapped);
}

} // namespace devcloud
