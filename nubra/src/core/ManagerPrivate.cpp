// SPDX-License-Identifier: MIT
#include "core/ManagerPrivate.h"

#include "http/CurlMultiDriver.h"
#include "http/HttpApiService.h"
#include "mqtt/MessageService.h"
#include "transfer/FileDownloadService.h"
#include "transfer/UploadService.h"
#include "upgrade/UpgradeService.h"

#include <Nubra/Manager.h>

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

Service* ManagerPrivate::serviceFor(const QString& name) const
{
    for (const auto& service : services)
        if (service->handles(name))
            return service.get();
    return nullptr;
}

} // namespace Nubra
