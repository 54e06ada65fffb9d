// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariantMap>

// Texts for what the helper hands back: result codes and reply maps.
namespace ResultText {

// "Timeout (1)".
QString code(int code);
// "6.0 MB".
QString bytes(qint64 count);
// Why a reply map is not a success: the cloud's message and code, or that
// no answer came.
QString failure(const QVariantMap& reply);
bool succeeded(const QVariantMap& reply);

} // namespace ResultText
