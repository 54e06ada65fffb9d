// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// Finds the client configuration that the helper will read. The helper looks
// at NUBRA_CONFIG first and then at the file beside the application; vorn
// checks the same places up front so it can say clearly which file it uses,
// or that there is none, before any request is made.
namespace ConfigDiscovery {

struct Located {
    QString path;   // absolute path of the file found
    QString origin; // "--config", "NUBRA_CONFIG" or "default location"
    QString error;  // set when no usable file was found
    bool ok() const { return error.isEmpty(); }
};

// explicitFile (from --config) wins; it is exported as NUBRA_CONFIG so the
// helper reads the same file. Must run before the helper is created.
Located locate(const QString& explicitFile);

// The file the helper reads when NUBRA_CONFIG is not set.
QString defaultPath();

} // namespace ConfigDiscovery
