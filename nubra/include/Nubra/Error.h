#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

namespace Nubra {

// Error numbers of the cloud client. Codes are grouped in ranges by family,
// each range ending in a catch-all, so that new codes fit without
// renumbering. Zero is "no error"; everything else is a failure of the
// request it is reported on (see Reply::errorOccurred).
class Error {
    Q_GADGET
public:
    enum ErrorCode {
        NoError = 0,

        // 100-199: the request itself or the client's configuration.
        ConfigMissing = 100,       // configuration file absent or unreadable
        ConfigMalformed = 101,     // configuration file is not valid JSON / misses keys
        UnknownRequest = 102,      // request name not in the request table
        InvalidArgument = 103,     // record misses or has badly typed entries
        NotConfigured = 104,       // no base URL / broker configured yet
        Busy = 105,                // the service already runs this job
        RequestErrorOther = 199,

        // 200-299: network transport.
        ConnectionRefused = 200,
        HostNotFound = 201,
        TimedOut = 202,            // the request's time-out elapsed
        ConnectionClosed = 203,    // peer reset or closed the connection mid-transfer
        TransferStalled = 204,     // no bytes moved for the stall period
        ProxyError = 205,
        Cancelled = 206,           // abort() was called
        NetworkErrorOther = 299,

        // 300-399: TLS.
        SslHandshakeFailed = 300,
        SslCertificateRejected = 301,
        SslErrorOther = 399,

        // 400-499: protocol and content.
        InvalidResponse = 400,     // answer is not a JSON object
        HttpError = 401,           // HTTP status >= 400 without a usable JSON answer
        IntegrityCheckFailed = 402,// downloaded bytes do not match the announced digest
        RemoteChanged = 403,       // resource changed between a pause and a resume
        SignatureInvalid = 404,    // signature missing, malformed or made by no pinned key
        ProtocolErrorOther = 499,

        // 500-599: message service.
        BrokerUnreachable = 500,
        NotAuthorized = 501,
        SubscribeRejected = 502,
        ConnectionLost = 503,      // gave up reconnecting after a drop
        NotConnected = 504,        // "subscribe" without a live "connectToServer"
        MessagingErrorOther = 599,

        // 600-699: local files.
        FileOpenFailed = 600,
        FileWriteFailed = 601,
        FileReadFailed = 602,
        FileErrorOther = 699,
    };
    Q_ENUM(ErrorCode)

    // A short English description of a code, for logs and tools.
    static QString describe(ErrorCode code);
};

} // namespace Nubra

Q_DECLARE_METATYPE(Nubra::Error::ErrorCode)
