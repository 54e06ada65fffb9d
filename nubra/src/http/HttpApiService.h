// SPDX-License-Identifier: MIT
#pragma once

#include "core/Service.h"

namespace Nubra {

// JSON API requests: every name of the configuration's request table. The
// record's "headers", "params", "body" and "source" become an HTTP request;
// the server's JSON object becomes the finished map.
class HttpApiService : public Service {
public:
    explicit HttpApiService(const ClientContext& context);

    bool handles(const QString& name) const override;
    Reply* start(const RequestContext& request) override;

private:
    ClientContext m_context;
};

} // namespace Nubra
