// SPDX-License-Identifier: MIT
#include "ReplyStatus.h"

#include <NubraCommon.h>

namespace ReplyStatus {

int codeOf(const QVariantMap& reply)
{
    if (reply.isEmpty())
        return NubraCommon::RequestRejected;
    return reply.value(QStringLiteral("status")).toString() == QLatin1String("success") ? NubraCommon::Success
                                                                                       : NubraCommon::ResponseFailed;
}

} // namespace ReplyStatus
