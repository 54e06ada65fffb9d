// SPDX-License-Identifier: MIT
#pragma once

#include "config/ClientConfig.h"
#include "core/Service.h"

#include <memory>
#include <vector>

namespace Nubra {

class CurlMultiDriver;
class Manager;

class ManagerPrivate {
public:
    explicit ManagerPrivate(Manager* manager);
    ~ManagerPrivate();

    static ManagerPrivate* get(Manager* manager);

    // The service for a request name: an added one first, then the
    // manager's own.
    Service* serviceFor(const QString& name) const;
    Service* addedServiceFor(const QString& name) const;

    // Services asked before the manager's own, the last added first, also
    // for the configuration calls ("setConfigPath" with the record
    // {"path": ...}, "setConfigData" with the configuration entries as the
    // record). Not owned: the adder removes it before deleting it. Tests
    // script the cloud's answers with exact timing this way.
    void addService(Service* service);
    void removeService(Service* service);

    ClientConfig config;
    CurlMultiDriver* curl = nullptr; // child of the manager
    ClientContext context;
    // Asked in order; the HTTP API service (request table) comes last.
    std::vector<std::unique_ptr<Service>> services;
    std::vector<Service*> addedServices;
};

} // namespace Nubra
