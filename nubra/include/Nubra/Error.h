// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/NubraExport.h>

#include <QMetaType>
#include <QObject>
#include <QString>

/// \file Error.h
/// The cloud client's error numbers, Nubra::Error.

/// The cloud client: Manager starts named requests, Reply reports each one.
namespace Nubra {

/// Error numbers of the cloud client. Codes are grouped in ranges by family,
/// each range ending in a catch-all, so that new codes fit without
/// renumbering. Zero is "no error"; everything else is a failure of the
/// request it is reported on (see Reply::errorOccurred()). docs/errors.md
/// lists how curl, HTTP, TLS and MQTT failures map onto them.
class NUBRA_EXPORT Error {
    Q_GADGET
public:
    /// An error number; Q_ENUM, so QMetaEnum gives its name.
    enum ErrorCode {
        NoError = 0, ///< No error.

        // 100-199: the request itself or the client's configuration.
        ConfigMissing = 100,       ///< Configuration file absent or unreadable.
        ConfigMalformed = 101,     ///< Configuration file is not valid JSON, or misses keys.
        UnknownRequest = 102,      ///< Request name not in the request table.
        InvalidArgument = 103,     ///< Record misses or has badly typed entries.
        NotConfigured = 104,       ///< No base URL or broker configured yet.
        Busy = 105,                ///< The service already runs this job.
        RequestErrorOther = 199,   ///< Any other failure of the request or configuration.

        // 200-299: network transport.
        ConnectionRefused = 200,   ///< The server refused the connection.
        HostNotFound = 201,        ///< The host name did not resolve.
        TimedOut = 202,            ///< The request's time-out elapsed.
        ConnectionClosed = 203,    ///< Peer reset or closed the connection mid-transfer.
        TransferStalled = 204,     ///< Not reported: stalls end as TimedOut (kept so the numbers stay).
        ProxyError = 205,          ///< The proxy failed or refused.
        Cancelled = 206,           ///< Reply::abort() was called.
        NetworkErrorOther = 299,   ///< Any other transport failure.

        // 300-399: TLS.
        SslHandshakeFailed = 300,  ///< The TLS handshake failed.
        SslCertificateRejected = 301, ///< The server's certificate was not trusted.
        SslErrorOther = 399,       ///< Any other TLS failure.

        // 400-499: protocol and content.
        InvalidResponse = 400,     ///< Answer is not a JSON object.
        HttpError = 401,           ///< HTTP status >= 400 without a usable JSON answer.
        IntegrityCheckFailed = 402,///< Downloaded bytes do not match the announced digest.
        RemoteChanged = 403,       ///< Resource changed between a pause and a resume.
        SignatureInvalid = 404,    ///< Signature missing, malformed or made by no pinned key.
        ProtocolErrorOther = 499,  ///< Any other protocol or content failure.

        // 500-599: message service.
        BrokerUnreachable = 500,   ///< The message broker could not be reached.
        NotAuthorized = 501,       ///< The broker refused the credentials.
        SubscribeRejected = 502,   ///< The broker refused the subscription.
        ConnectionLost = 503,      ///< Gave up reconnecting after a drop.
        NotConnected = 504,        ///< "subscribe" without a live "connectToServer".
        MessagingErrorOther = 599, ///< Any other message-service failure.

        // 600-699: local files.
        FileOpenFailed = 600,      ///< A local file could not be opened.
        FileWriteFailed = 601,     ///< Writing a local file failed.
        FileReadFailed = 602,      ///< Reading a local file failed.
        FileErrorOther = 699,      ///< Any other local-file failure.
    };
    Q_ENUM(ErrorCode)

    /// A short English description of `code`, for logs and tools.
    static QString describe(ErrorCode code);
};

} // namespace Nubra

Q_DECLARE_METATYPE(Nubra::Error::ErrorCode)
