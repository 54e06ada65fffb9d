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

    Service* serviceFor(const QString& name) const;

    ClientConfig config;
    CurlMultiDriver* curl = nullptr; // child of the manager
    ClientContext context;
    // Asked in order; the HTTP API service (request table) comes last.
    std::vector<std::unique_ptr<Service>> services;
};

} // namespace Nubra
