// SPDX-License-Identifier: MIT
#include "DevCloud.h"

#include "CleanupWatcher.h"
#include "ConnectionThreads.h"
#include "LoopbackCertificates.h"
#include "Seed.h"
#include "StopSignal.h"
#include "services/MessageService.h"
#include "services/Services.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace devcloud {

namespace {

// Connections served at once; more wait for one of them to close.
constexpr size_t kMaxConnections = 512;

// The message of an error answer the server makes itself (no handler ran).
QString errorText(int status)
{
    switch (status) {
    case 400: return QStringLiteral("malformed request");
    case 404: return QStringLiteral("no such endpoint");
    case 405: return QStringLiteral("method not allowed here");
    case 411: return QStringLiteral("a request body needs a Content-Length or chunked transfer encoding");
    case 413: return QStringLiteral("request body too large");
    case 414: return QStringLiteral("URI too long");
    case 416: return QStringLiteral("range not satisfiable");
    default: return QStringLiteral("HTTP error %1").arg(status);
    }
}

} // namespace

DevCloud::DevCloud(Options options)
    : m_options(std::move(options))
{
}

DevCloud::~DevCloud()
{
    if (m_ownsDataDir && !m_dataDir.isEmpty())
        QDir(m_dataDir).removeRecursively();
    if (!m_tlsDir.isEmpty())
        QDir(m_tlsDir).removeRecursively();
}

QString DevCloud::baseUrl() const
{
    return QStringLiteral("%1://%2:%3").arg(m_options.tls ? "https" : "http", m_options.host).arg(m_port);
}

bool DevCloud::createServer(QString* error)
{
    if (!m_options.tls) {
        m_server = std::make_unique<httplib::Server>();
        return true;
    }
    QTemporaryDir temp(QDir::tempPath() + QStringLiteral("/nubra-devcloud-tls-XXXXXX"));
    temp.setAutoRemove(false);
    if (!temp.isValid()) {
        *error = QStringLiteral("cannot create a folder for the TLS certificates");
        return false;
    }
    m_tlsDir = temp.path();
    CleanupWatcher::removeIfAbandoned(m_tlsDir);
    LoopbackCertificates files;
    if (!files.generate(m_tlsDir, error))
        return false;
    auto server = std::make_unique<httplib::SSLServer>(files.certFile.toLocal8Bit().constData(),
                                                       files.keyFile.toLocal8Bit().constData());
    if (!server->is_valid()) {
        *error = QStringLiteral("cannot load the TLS certificate %1").arg(files.certFile);
        return false;
    }
    m_caFile = files.caFile;
    m_server = std::move(server);
    return true;
}

bool DevCloud::setUp(QString* error)
{
    if (m_options.dataDir.isEmpty()) {
        QTemporaryDir temp(QDir::tempPath() + QStringLiteral("/nubra-devcloud-XXXXXX"));
        temp.setAutoRemove(false);
        if (!temp.isValid()) {
            *error = QStringLiteral("cannot create a temporary data folder");
            return false;
        }
        m_dataDir = temp.path();
        m_ownsDataDir = true;
        CleanupWatcher::removeIfAbandoned(m_dataDir);
    } else {
        m_dataDir = QDir(m_options.dataDir).absolutePath();
        if (!QDir().mkpath(m_dataDir)) {
            *error = QStringLiteral("cannot create data folder %1").arg(m_dataDir);
            return false;
        }
    }

    // A folder kept from before may be readable by others: it holds the
    // users' data (and, from older versions, clear tokens).
    QFile::setPermissions(m_dataDir, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    const QString database = m_dataDir + QStringLiteral("/devcloud.sqlite");
    if (!m_store.open(database, error))
        return false;
    for (const char* suffix : {"", "-wal", "-shm"})
        if (QFile::exists(database + QLatin1String(suffix)))
            QFile::setPermissions(database + QLatin1String(suffix), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (!createSchema(m_store, error) || !seedDemoData(m_store, error))
        return false;

    if (!createServer(error))
        return false;
    // Bind first so that the real port is known to the services and to the
    // configuration before the first request.
    m_server->set_tcp_nodelay(true);
    // A thread per open connection, so that idle, silent or slow ones hold
    // only their own (see ConnectionThreads).
    m_server->new_task_queue = [] { return new ConnectionThreads(kMaxConnections); };
    m_server->set_keep_alive_max_count(100000);
    m_server->set_read_timeout(30, 0);
    m_server->set_exception_handler([](const httplib::Request&, httplib::Response& response, std::exception_ptr) {
        writeFailure(response, 500, QStringLiteral("internal"), QStringLiteral("internal error"));
    });
    m_server->set_error_handler([](const httplib::Request&, httplib::Response& response) {
        if (!response.body.empty())
            return;
        writeFailure(response, response.status, QStringLiteral("http%1").arg(response.status),
                     errorText(response.status));
    });
    // A request with a body but neither a length nor chunks: the HTTP
    // server would read its body until the client closes the connection,
    // holding a worker meanwhile (the client waits for an answer, the server
    // for the end of the body). Refused before the body is read.
    //
    // Bodies held in memory are limited (ApiRouter::kMaxBodyBytes): one
    // announced as larger is refused before it is read; a chunked one is
    // cut off by the JSON endpoints as it arrives, and refused by the test
    // controls, whose bodies the HTTP server reads whole. The upload streams
    // its body to disk and has no limit.
    m_server->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        const bool hasBody = request.method == "POST" || request.method == "PUT" || request.method == "PATCH";
        if (!hasBody)
            return httplib::Server::HandlerResponse::Unhandled;
        const ApiRouter::BodyReading reading =
            m_router ? m_router->bodyReading(request.path) : ApiRouter::BodyReading::Whole;
        const bool chunked = request.get_header_value("Transfer-Encoding").find("chunked") != std::string::npos;
        int status = 0;
        QString message;
        if (request.has_header("Content-Length")) {
            const std::string length = request.get_header_value("Content-Length");
            if (reading != ApiRouter::BodyReading::Streamed &&
                std::strtoull(length.c_str(), nullptr, 10) > ApiRouter::kMaxBodyBytes)
                status = 413;
        } else if (!chunked) {
            status = 411;
        } else if (reading == ApiRouter::BodyReading::Whole) {
            status = 411;
            message = QStringLiteral("this endpoint needs a Content-Length (chunked bodies are taken by the API only)");
        }
        if (status == 0)
            return httplib::Server::HandlerResponse::Unhandled;
        writeFailure(response, status, QStringLiteral("http%1").arg(status),
                     message.isEmpty() ? errorText(status) : message);
        // The unread body would otherwise be taken for the next request.
        response.set_header("Connection", "close");
        return httplib::Server::HandlerResponse::Handled;
    });
    if (m_options.port == 0) {
        m_port = m_server->bind_to_any_port(m_options.host.toStdString());
    } else {
        m_port = m_server->bind_to_port(m_options.host.toStdString(), m_options.port) ? m_options.port : -1;
    }
    if (m_port <= 0) {
        *error = QStringLiteral("cannot bind %1:%2").arg(m_options.host).arg(m_options.port);
        return false;
    }

    m_router = std::make_unique<ApiRouter>(*m_server, m_store);
    // Handlers keep a pointer to the context: it lives as long as the cloud.
    m_context = std::make_unique<ServiceContext>(
        ServiceContext{*m_server, *m_router, m_store, m_sessions, m_dataDir, baseUrl(), m_configSections});
    registerGeneralService(*m_context);
    registerAccountService(*m_context);
    registerDiskService(*m_context);
    m_messages = registerMessageService(*m_context, m_options.brokerTls);
    registerUpgradeService(*m_context);
    registerFilesService(*m_context);

    m_server->Get("/devcloud/health", [](const httplib::Request&, httplib::Response& response) {
        writeJson(response, 200, {{QStringLiteral("status"), QStringLiteral("success")}});
    });

    if (!m_options.writeConfig.isEmpty()) {
        QSaveFile file(m_options.writeConfig);
        if (!file.open(QIODevice::WriteOnly)) {
            *error = QStringLiteral("cannot write %1: %2").arg(m_options.writeConfig, file.errorString());
            return false;
        }
        file.write(QJsonDocument(clientConfig()).toJson(QJsonDocument::Indented));
        if (!file.commit()) {
            *error = QStringLiteral("cannot write %1: %2").arg(m_options.writeConfig, file.errorString());
            return false;
        }
    }
    return true;
}

QJsonObject DevCloud::clientConfig() const
{
    QJsonObject config = m_configSections;
    config.insert(QStringLiteral("baseUrl"), baseUrl());
    if (!m_caFile.isEmpty())
        config.insert(QStringLiteral("caFile"), m_caFile);
    // For the dev cloud's tools and tests, not read by the client.
    config.insert(QStringLiteral("devcloud"), QJsonObject{{QStringLiteral("dataDir"), m_dataDir}});
    config.insert(QStringLiteral("timeout"), 30);
    config.insert(QStringLiteral("stallTimeout"), 30);
    config.insert(QStringLiteral("requests"), m_router->requestTable());
    config.insert(QStringLiteral("productLines"),
                  QJsonObject{{QStringLiteral("default"),
                               QJsonObject{{QStringLiteral("productLine"), QStringLiteral("VornScan")},
                                           {QStringLiteral("models"),
                                            QJsonArray{QStringLiteral("VS-200"), QStringLiteral("VS-300 Pro")}},
                                           {QStringLiteral("cloud"), QStringLiteral("nubra-devcloud")}}}});
    return config;
}

bool DevCloud::serve() { return m_server->listen_after_bind(); }

namespace {

// Shuts down every open connection to the given local port of this
// process (the server's own connections: the listening socket has no peer).
// The server keeps a kept-alive connection open until its keep-alive
// time-out runs out (5 s), and only then notices that it was stopped;
// with the connection shut down, the worker reads end-of-file at once.
void shutDownConnectionsTo(int port)
{
    DIR* fds = opendir("/proc/self/fd");
    if (!fds)
        return;
    while (const dirent* entry = readdir(fds)) {
        char* end = nullptr;
        const long fd = std::strtol(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0' || fd == dirfd(fds))
            continue;
        sockaddr_storage local{};
        socklen_t length = sizeof local;
        if (getsockname(int(fd), reinterpret_cast<sockaddr*>(&local), &length) != 0)
            continue; // not a socket
        int localPort = -1;
        if (local.ss_family == AF_INET)
            localPort = ntohs(reinterpret_cast<const sockaddr_in&>(local).sin_port);
        else if (local.ss_family == AF_INET6)
            localPort = ntohs(reinterpret_cast<const sockaddr_in6&>(local).sin6_port);
        if (localPort != port)
            continue;
        sockaddr_storage peer{};
        length = sizeof peer;
        if (getpeername(int(fd), reinterpret_cast<sockaddr*>(&peer), &length) == 0)
            shutdown(int(fd), SHUT_RDWR);
    }
    closedir(fds);
}

} // namespace

void DevCloud::stop()
{
    if (!m_server)
        return;
    // Closes the listening socket: no connection is accepted after this.
    m_server->stop();
    shutDownConnectionsTo(m_port);
    // Then the injected waits end, so that no handler holds its worker;
    // what they answer now finds its connection closed (a client waiting
    // for a held-back answer sees the connection go, whatever the timing).
    StopSignal::raise();
}

} // namespace devcloud
