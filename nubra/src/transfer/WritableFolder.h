// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Nubra {

// Creates a folder with its missing parents and checks that files can be
// created in it. Returns an empty string on success, else a message that
// names the folder and the system's reason (strerror), e.g. "cannot create
// folder /a/b: Not a directory". QDir::mkpath() only says that it failed.
QString prepareWritableFolder(const QString& folder);

} // namespace Nubra
