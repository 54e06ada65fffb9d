// SPDX-License-Identifier: MIT
#pragma once

#include "Router.h"
#include "SessionTokens.h"
#include "Store.h"

#include <httplib.h>

#include <QJsonObject>
#include <QString>

#include <memory>

namespace devcloud {

struct ServiceContext;
class MessageHub;

struct Options {
    QString host = QStringLiteral("127.0.0.1");
    int port = 0;           // 0 picks a free port
    QString dataDir;        // empty: a temporary folder removed at exit
    QString writeConfig;    // client configuration to write, or empty
    bool brokerTls = false; // the message broker listens with TLS
    bool tls = false;       // the API is served over HTTPS
};

// The whole dev cloud: HTTP server, storage and services.
class DevCloud {
public:
    explicit DevCloud(Options options);
    ~DevCloud();

    // Opens storage, seeds it, binds the port and registers every service.
    bool setUp(QString* error);
    // Serves until stop() is called (from another thread).
    bool serve();
    void stop();

    int port() const { return m_port; }
    QString baseUrl() const;
    // The certificate authority clients trust with --tls, else empty.
    QString caFile() const { return m_caFile; }
    // The client configuration pointing at this cloud.
    QJsonObject clientConfig() const;

private:
    // A plain server, or with --tls an SSLServer with fresh certificates.
    bool createServer(QString* error);

    Options m_options;
    std::unique_ptr<httplib::Server> m_server; // an SSLServer with --tls
    QString m_tlsDir;                          // the API's certificates, removed at exit
    QString m_caFile;
    Store m_store;
    SessionTokens m_sessions{m_store};
    std::unique_ptr<ApiRouter> m_router;
    std::unique_ptr<ServiceContext> m_context;
    QJsonObject m_configSections;
    QString m_dataDir;
    bool m_ownsDataDir = false;
    int m_port = 0;
    // Last, so that the broker stops first.
    std::unique_ptr<MessageHub> m_messages;
};

} // namespace devcloud
