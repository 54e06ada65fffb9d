// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Reply.h>

#include <QString>
#include <QVariantMap>

namespace Nubra {
class Manager;
class ClientConfig;
class CurlMultiDriver;

// What a service gets from the manager that created it. All pointers stay
// valid for the service's life (the manager owns them all).
struct ClientContext {
    Manager* manager = nullptr;
    ClientConfig* config = nullptr;
    CurlMultiDriver* curl = nullptr;
};

// One request as handed to Manager::request().
struct RequestContext {
    QString name;
    QString extra;
    QVariantMap record;
    QVariantMap options;
};

// A family of requests (HTTP API, uploads, downloads, upgrade, messages).
// The manager asks each service in turn whether it handles a name.
class Service {
public:
    virtual ~Service() = default;
    virtual bool handles(const QString& name) const = 0;
    // Starts the request; never returns null. Failures found at once are
    // reported through the reply's status() (and its later signals).
    virtual Reply* start(const RequestContext& request) = 0;
};

} // namespace Nubra
