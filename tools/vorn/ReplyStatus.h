// SPDX-License-Identifier: MIT
#pragma once

#include <QVariantMap>

// The user-account and cloud-disk calls return no result code: the helper
// hands back the reply map itself. vorn derives the code a caller would act
// on from that map, so these commands answer like every other one.
namespace ReplyStatus {

// Success when "status" is "success"; RequestRejected when the map is empty
// (the request never started: the helper leaves it empty then); otherwise
// ResponseFailed.
int codeOf(const QVariantMap& reply);

} // namespace ReplyStatus
