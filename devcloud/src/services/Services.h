// SPDX-License-Identifier: MIT
#pragma once

#include "Router.h"
#include "SessionTokens.h"
#include "Store.h"

#include <QJsonObject>
#include <QString>

#include <httplib.h>

#include <memory>

namespace devcloud {

class MessageHub;

// What every service gets when it registers its routes.
struct ServiceContext {
    httplib::Server& server;
    ApiRouter& router;
    Store& store;
    SessionTokens& sessions;
    // Folder for files the cloud keeps (uploads, packages); exists.
    QString dataDir;
    // "http://127.0.0.1:PORT", known before any request is served.
    QString baseUrl;
    // Top-level sections a service adds to the client configuration it
    // writes (e.g. "mqtt", "upgrade").
    QJsonObject& configSections;
};

// One function per service, each in its own file.
void registerGeneralService(ServiceContext& context);
void registerAccountService(ServiceContext& context);
void registerDiskService(ServiceContext& context);
// The broker lives as long as the returned hub (owned by DevCloud).
// With brokerTls the broker listens with TLS instead of plain TCP.
std::unique_ptr<MessageHub> registerMessageService(ServiceContext& context, bool brokerTls);
void registerUpgradeService(ServiceContext& context);
void registerFilesService(ServiceContext& context);

} // namespace devcloud
