// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Nubra {
class Service;

// Services installed here are asked before any manager's own services, by
// every manager of the process, for requests and for the configuration
// calls ("setConfigPath" with the record {"path": ...}, "setConfigData" with
// the configuration entries as the record). Tests use this to script the
// cloud's answers with exact timing; nothing else should.
void installInterceptor(Service* service);
void removeInterceptor(Service* service);
Service* interceptorFor(const QString& name);

} // namespace Nubra
