// SPDX-License-Identifier: MIT
#pragma once

// The text Qt 5's QDebug writes for a variant map, whichever Qt the helper
// is built with: the helper's debug lines print reply maps, and Qt 6 writes
// lists as "QList(...)" where Qt 5 writes "(...)". The debug lines are kept
// as Qt 5 writes them, for compatibility with applications built against
// this interface (docs/compatibility.md).

#include <QString>
#include <QVariantMap>

namespace VornDebugText {

// QDebug's text for the map (quoted keys, "QVariant(type, value)" values).
// Lists and string lists are written as Qt 5 writes them, at any depth;
// every other value as this Qt's QDebug writes it.
QString ofMap(const QVariantMap& map);

} // namespace VornDebugText
