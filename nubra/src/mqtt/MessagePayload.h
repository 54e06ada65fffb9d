// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QVariantMap>

namespace Nubra {

// Turns an MQTT payload into the map of Reply::received. No payload is
// dropped:
// - a JSON object arrives as that object's map;
// - anything else is wrapped as {"payload": text, "encoding": "utf8"} when
//   the bytes are valid UTF-8 (JSON arrays, numbers and plain text
//   included), or {"payload": base64, "encoding": "base64"} otherwise.
QVariantMap decodeMessagePayload(const QByteArray& payload);

} // namespace Nubra
