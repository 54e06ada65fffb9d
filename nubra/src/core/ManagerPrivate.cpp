// SPDX-License-Identifier: MIT
#include "core/ManagerPrivate.h"

#include "http/CurlMultiDriver.h"
#include "http/HttpApiService.h"
#include "mqtt/MessageService.h"
#include "transfer/FileDownloadService.h"
#include "transfer/UploadService.h"
#include "upgrade/UpgradeService.h"

#include <Nubra/Manager.h>

#include <algorithm>

namespace Nubra {

ManagerPrivate::ManagerPrivate(Manager* manager)
    : curl(new CurlMultiDriver(manager))
{
    context.manager = manager;
    context.config = &config;
    context.curl = curl;

    // Services with fixed request names first, the request table last.
    services.push_back(std::make_unique<MessageService>(context));
    services.push_back(std::make_unique<UpgradeService>(context));
    services.push_back(std::make_unique<FileDownloadService>(context));
    services.push_back(std::make_unique<UploadService>(context));
    services.push_back(std::make_unique<HttpApiService>(context));
}

ManagerPrivate::~ManagerPrivate() = default;

ManagerPrivate* ManagerPrivate::get(Manager* manager) { return manager->d.get(); }

Service* ManagerPrivate::addedServiceFor(const QString& name) const
{
    for (Service* service : addedServices)
        if (service->handles(name))
            return service;
    return nullptr;
}

Service* ManagerPrivate::serviceFor(const QString& name) const
{
    if (Service* added = addedServiceFor(name))
        return added;
    for (const auto& service : services)
        if (service->handles(name))
            return service.get();
    return nullptr;
}

void ManagerPrivate::addService(Service* service) { addedServices.insert(addedServices.begin(), service); }

void ManagerPrivate::removeService(Service* service)
{
    addedServices.erase(std::remove(addedServices.begin(), addedServices.end(), service), addedServices.end());
}

} // namespace Nubra
