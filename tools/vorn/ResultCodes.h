// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// Names of the helper's result codes (NubraCommon::ErrorCode), for output.
namespace ResultCodes {

// "Success", "Timeout", ...; "Unknown" for a value outside 0..12.
QString name(int code);
// One short sentence that says what the code means to a user.
QString meaning(int code);

} // namespace ResultCodes
