#pragma once

#include "Router.h"
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
    // The client configuration pointing at this cloud.
    QJsonObject clientConfig() const;

private:
    Options m_options;
    httplib::Server m_server;
    Store m_store;
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
