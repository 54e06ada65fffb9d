// SPDX-License-Identifier: MIT
#include <Nubra/Error.h>

namespace Nubra {

QString Error::describe(ErrorCode code)
{
    switch (code) {
    case NoError: return QStringLiteral("no error");
    case ConfigMissing: return QStringLiteral("configuration file missing or unreadable");
    case ConfigMalformed: return QStringLiteral("configuration file malformed");
    case UnknownRequest: return QStringLiteral("unknown request name");
    case InvalidArgument: return QStringLiteral("invalid request argument");
    case NotConfigured: return QStringLiteral("client not configured");
    case Busy: return QStringLiteral("service busy");
    case RequestErrorOther: return QStringLiteral("request error");
    case ConnectionRefused: return QStringLiteral("connection refused");
    case HostNotFound: return QStringLiteral("host not found");
    case TimedOut: return QStringLiteral("timed out");
    case ConnectionClosed: return QStringLiteral("connection closed by peer");
    case TransferStalled: return QStringLiteral("transfer stalled");
    case ProxyError: return QStringLiteral("proxy error");
    case Cancelled: return QStringLiteral("cancelled");
    case NetworkErrorOther: return QStringLiteral("network error");
    case SslHandshakeFailed: return QStringLiteral("TLS handshake failed");
    case SslCertificateRejected: return QStringLiteral("TLS certificate rejected");
    case SslErrorOther: return QStringLiteral("TLS error");
    case InvalidResponse: return QStringLiteral("answer is not a JSON object");
    case HttpError: return QStringLiteral("HTTP error status");
    case IntegrityCheckFailed: return QStringLiteral("integrity check failed");
    case RemoteChanged: return QStringLiteral("remote file changed");
    case SignatureInvalid: return QStringLiteral("signature invalid");
    case ProtocolErrorOther: return QStringLiteral("protocol error");
    case BrokerUnreachable: return QStringLiteral("message broker unreachable");
    case NotAuthorized: return QStringLiteral("not authorized");
    case SubscribeRejected: return QStringLiteral("subscription rejected");
    case ConnectionLost: return QStringLiteral("connection lost");
    case NotConnected: return QStringLiteral("not connected to the message broker");
    case MessagingErrorOther: return QStringLiteral("messaging error");
    case FileOpenFailed: return QStringLiteral("cannot open file");
    case FileWriteFailed: return QStringLiteral("cannot write file");
    case FileReadFailed: return QStringLiteral("cannot read file");
    case FileErrorOther: return QStringLiteral("file error");
    }
    return QStringLiteral("error %1").arg(int(code));
}

} // namespace Nubra
