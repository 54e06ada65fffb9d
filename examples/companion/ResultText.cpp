// SPDX-License-Identifier: MIT
#include "ResultText.h"

#include <NubraCommon.h>

namespace ResultText {

QString code(int code)
{
    static const char* const names[] = {"Success",         "Timeout",        "NoManager",      "MissingField",
                                        "UnknownInterface", "RequestRejected", "ResponseFailed", "TransportError",
                                        "SerializeFailed",  "SubscribeFailed", "DownloadRunning", "NoDownload",
                                        "PackageExists"};
    const bool known = code >= 0 && code < int(sizeof names / sizeof *names);
    return QStringLiteral("%1 (%2)").arg(QLatin1String(known ? names[code] : "unknown code")).arg(code);
}

QString bytes(qint64 count)
{
    if (count < 1024)
        return QStringLiteral("%1 B").arg(count);
    if (count < 1024 * 1024)
        return QStringLiteral("%1 KB").arg(count / 1024.0, 0, 'f', 1);
    if (count < qint64(1024) * 1024 * 1024)
        return QStringLiteral("%1 MB").arg(count / (1024.0 * 1024.0), 0, 'f', 1);
    return QStringLiteral("%1 GB").arg(count / (1024.0 * 1024.0 * 1024.0), 0, 'f', 1);
}

bool succeeded(const QVariantMap& reply)
{
    return reply.value(QStringLiteral("status")).toString() == QLatin1String("success");
}

QString failure(const QVariantMap& reply)
{
    if (reply.isEmpty())
        return QStringLiteral("no answer from the cloud (is it running, and does NUBRA_CONFIG point at it?)");
    const QString message = reply.value(QStringLiteral("message")).toString();
    const QString code = reply.value(QStringLiteral("code")).toString();
    if (message.isEmpty() && code.isEmpty())
        return QStringLiteral("the cloud answered \"%1\"").arg(reply.value(QStringLiteral("status")).toString());
    return code.isEmpty() ? message : QStringLiteral("%1 (%2)").arg(message, code);
}

} // namespace ResultText
