// SPDX-License-Identifier: MIT
#include "http/CurlErrorMap.h"

#include <openssl/x509_vfy.h>

namespace Nubra {

Error::ErrorCode errorForCurl(CURLcode code)
{
    switch (code) {
    case CURLE_OK: return Error::NoError;
    case CURLE_COULDNT_CONNECT: return Error::ConnectionRefused;
    case CURLE_COULDNT_RESOLVE_HOST: return Error::HostNotFound;
    case CURLE_COULDNT_RESOLVE_PROXY: return Error::ProxyError;
    case CURLE_OPERATION_TIMEDOUT: return Error::TimedOut;
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM: return Error::ConnectionClosed;
    case CURLE_ABORTED_BY_CALLBACK: return Error::Cancelled;
    case CURLE_PEER_FAILED_VERIFICATION: return Error::SslCertificateRejected;
    case CURLE_SSL_CONNECT_ERROR: return Error::SslHandshakeFailed;
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_ENGINE_NOTFOUND: return Error::SslErrorOther;
    case CURLE_WRITE_ERROR: return Error::FileWriteFailed;
    case CURLE_READ_ERROR: return Error::FileReadFailed;
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL: return Error::InvalidArgument;
    case CURLE_RANGE_ERROR:
    case CURLE_BAD_DOWNLOAD_RESUME: return Error::RemoteChanged;
    case CURLE_FILESIZE_EXCEEDED: return Error::IntegrityCheckFailed;
    case CURLE_TOO_MANY_REDIRECTS:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING: return Error::ProtocolErrorOther;
    default: return Error::NetworkErrorOther;
    }
}

QList<QSslError> sslErrorsFor(CURLcode code, long verifyResult, const QString& curlMessage)
{
    if (code == CURLE_SSL_CACERT_BADFILE)
        return {QSslError(QSslError::UnableToGetLocalIssuerCertificate)};
    // curl checks the host name itself, after OpenSSL accepted the chain,
    // and then leaves a verify result that says nothing about names (1,
    // "unspecified", with curl 7.88 and OpenSSL 3); only its text tells.
    if (curlMessage.contains(QLatin1String("subject name"), Qt::CaseInsensitive) ||
        curlMessage.contains(QLatin1String("host name"), Qt::CaseInsensitive))
        return {QSslError(QSslError::HostNameMismatch)};
    switch (verifyResult) {
    case X509_V_OK:
        // curl verified the chain itself but the name did not match.
        return {QSslError(QSslError::HostNameMismatch)};
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT: return {QSslError(QSslError::SelfSignedCertificate)};
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN: return {QSslError(QSslError::SelfSignedCertificateInChain)};
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        return {QSslError(QSslError::UnableToGetLocalIssuerCertificate)};
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT: return {QSslError(QSslError::UnableToGetIssuerCertificate)};
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        return {QSslError(QSslError::UnableToVerifyFirstCertificate)};
    case X509_V_ERR_CERT_HAS_EXPIRED: return {QSslError(QSslError::CertificateExpired)};
    case X509_V_ERR_CERT_NOT_YET_VALID: return {QSslError(QSslError::CertificateNotYetValid)};
    case X509_V_ERR_CERT_REVOKED: return {QSslError(QSslError::CertificateRevoked)};
    case X509_V_ERR_CERT_SIGNATURE_FAILURE: return {QSslError(QSslError::CertificateSignatureFailed)};
    case X509_V_ERR_INVALID_CA: return {QSslError(QSslError::InvalidCaCertificate)};
    case X509_V_ERR_CERT_UNTRUSTED: return {QSslError(QSslError::CertificateUntrusted)};
    case X509_V_ERR_CERT_REJECTED: return {QSslError(QSslError::CertificateRejected)};
    case X509_V_ERR_HOSTNAME_MISMATCH: return {QSslError(QSslError::HostNameMismatch)};
    default: return {QSslError(QSslError::UnspecifiedError)};
    }
}

} // namespace Nubra
