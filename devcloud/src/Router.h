// SPDX-License-Identifier: MIT
#pragma once

#include <httplib.h>

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <functional>
#include <optional>
#include <set>
#include <string>

namespace devcloud {

class Store;

// A signed-in user, as found from the "X-Auth-Token" header.
struct User {
    qint64 id = 0;
    QString account;
    QString name;
};

// One API call as a handler sees it.
struct ApiCall {
    const httplib::Request& request;
    httplib::Response& response;
    // JSON body of POST/PUT; for GET the query parameters as strings.
    QJsonObject body;
    // Query parameters as strings.
    QJsonObject query;
    // Set when the route requires a token and the token is valid.
    std::optional<User> user;

    QString header(const char* name) const { return QString::fromStdString(request.get_header_value(name)); }
    // body value, falling back to the query parameter of the same name.
    QJsonValue arg(const QString& key) const;
};

// Answers {"status": "success", "result": result}.
void replySuccess(ApiCall& call, const QJsonValue& result);
// Answers {"status": "failure", "message": message, "code": code} with a
// real HTTP status.
void replyFailure(ApiCall& call, int httpStatus, const QString& code, const QString& message);
// Same for code that has only the response at hand.
void writeFailure(httplib::Response& response, int httpStatus, const QString& code, const QString& message);
void writeJson(httplib::Response& response, int httpStatus, const QJsonObject& object);

// Registers the JSON API routes and remembers, for each request name, the
// method and path that the client configuration must map it to.
class ApiRouter {
public:
    using Handler = std::function<void(ApiCall&)>;
    enum class Auth { None, Token };

    ApiRouter(httplib::Server& server, Store& store);

    // name: the request name clients use; method: "GET" or "POST".
    void add(const QString& name, const QString& method, const QString& path, Auth auth, Handler handler);
    // The "requests" table of the client configuration.
    QJsonObject requestTable() const { return m_table; }
    // How a path's request body is read.
    enum class BodyReading {
        Bounded,  // a JSON endpoint: read into memory, 413 once past kMaxBodyBytes
        Streamed, // a handler that streams the body (the upload): no limit
        Whole,    // any other handler: read whole by the HTTP server
    };
    BodyReading bodyReading(const std::string& path) const;
    // Marks a path whose handler streams its body itself.
    void markStreamed(const std::string& path) { m_streamedPaths.insert(path); }

    // The largest body held in memory: a JSON endpoint's, a test control's.
    static constexpr size_t kMaxBodyBytes = 4 * 1024 * 1024;

    // Looks a token up; nullopt when missing, unknown or expired.
    std::optional<User> userForToken(const QString& token) const;

private:
    httplib::Server& m_server;
    Store& m_store;
    QJsonObject m_table;
    std::set<std::string> m_paths;
    std::set<std::string> m_streamedPaths;
};

} // namespace devcloud
