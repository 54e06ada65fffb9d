// SPDX-License-Identifier: MIT
// Foreign error codes mapped onto the client's: libcurl results and
// OpenSSL verification results.

#include "http/CurlErrorMap.h"

#include <QMetaEnum>
#include <QSet>

#include <openssl/x509_vfy.h>

#include <gtest/gtest.h>

using Nubra::Error;

TEST(ErrorMap, curlCodes)
{
    const std::pair<CURLcode, Error::ErrorCode> cases[] = {
        {CURLE_OK, Error::NoError},
        {CURLE_COULDNT_CONNECT, Error::ConnectionRefused},
        {CURLE_COULDNT_RESOLVE_HOST, Error::HostNotFound},
        {CURLE_COULDNT_RESOLVE_PROXY, Error::ProxyError},
        {CURLE_OPERATION_TIMEDOUT, Error::TimedOut},
        {CURLE_GOT_NOTHING, Error::ConnectionClosed},
        {CURLE_RECV_ERROR, Error::ConnectionClosed},
        {CURLE_SEND_ERROR, Error::ConnectionClosed},
        {CURLE_PARTIAL_FILE, Error::ConnectionClosed},
        {CURLE_ABORTED_BY_CALLBACK, Error::Cancelled},
        {CURLE_PEER_FAILED_VERIFICATION, Error::SslCertificateRejected},
        {CURLE_SSL_CONNECT_ERROR, Error::SslHandshakeFailed},
        {CURLE_SSL_CACERT_BADFILE, Error::SslErrorOther},
        {CURLE_WRITE_ERROR, Error::FileWriteFailed},
        {CURLE_READ_ERROR, Error::FileReadFailed},
        {CURLE_URL_MALFORMAT, Error::InvalidArgument},
        {CURLE_BAD_DOWNLOAD_RESUME, Error::RemoteChanged},
        {CURLE_WEIRD_SERVER_REPLY, Error::ProtocolErrorOther},
        {CURLE_TOO_MANY_REDIRECTS, Error::ProtocolErrorOther},
        {CURLE_FILESIZE_EXCEEDED, Error::IntegrityCheckFailed},
        {CURLE_UNSUPPORTED_PROTOCOL, Error::InvalidArgument},
        {CURLE_SSH, Error::NetworkErrorOther},
    };
    for (const auto& [curl, expected] : cases)
        EXPECT_EQ(Nubra::errorForCurl(curl), expected) << curl_easy_strerror(curl);
}

// Every code has its own description and sits in a family range; the
// meta-type is registered under its full name for queued connections.
TEST(ErrorMap, everyCodeIsDescribedAndRanged)
{
    const QMetaEnum meta = QMetaEnum::fromType<Error::ErrorCode>();
    ASSERT_GT(meta.keyCount(), 10);
    QSet<QString> texts;
    for (int i = 0; i < meta.keyCount(); ++i) {
        const int value = meta.value(i);
        const QString text = Error::describe(Error::ErrorCode(value));
        EXPECT_FALSE(text.startsWith("error ")) << meta.key(i) << " has no description";
        EXPECT_FALSE(texts.contains(text)) << meta.key(i) << " shares its description";
        texts.insert(text);
        EXPECT_TRUE(value == 0 || (value >= 100 && value < 700)) << meta.key(i);
    }
    EXPECT_EQ(Error::describe(Error::ErrorCode(12345)), "error 12345");
    qRegisterMetaType<Nubra::Error::ErrorCode>("Nubra::Error::ErrorCode");
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    EXPECT_TRUE(QMetaType::fromName("Nubra::Error::ErrorCode").isValid());
#else
    EXPECT_NE(QMetaType::type("Nubra::Error::ErrorCode"), int(QMetaType::UnknownType));
#endif
}

TEST(ErrorMap, tlsVerifyResults)
{
    const std::pair<long, QSslError::SslError> cases[] = {
        {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, QSslError::SelfSignedCertificate},
        {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, QSslError::SelfSignedCertificateInChain},
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, QSslError::UnableToGetLocalIssuerCertificate},
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, QSslError::UnableToGetIssuerCertificate},
        {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, QSslError::UnableToVerifyFirstCertificate},
        {X509_V_ERR_CERT_HAS_EXPIRED, QSslError::CertificateExpired},
        {X509_V_ERR_CERT_NOT_YET_VALID, QSslError::CertificateNotYetValid},
        {X509_V_ERR_CERT_REVOKED, QSslError::CertificateRevoked},
        {X509_V_ERR_HOSTNAME_MISMATCH, QSslError::HostNameMismatch},
        {X509_V_OK, QSslError::HostNameMismatch}, // chain fine: the name did not match
        {X509_V_ERR_OUT_OF_MEM, QSslError::UnspecifiedError},
    };
    for (const auto& [verify, expected] : cases) {
        const QList<QSslError> errors = Nubra::sslErrorsFor(CURLE_PEER_FAILED_VERIFICATION, verify);
        ASSERT_EQ(errors.size(), 1);
        EXPECT_EQ(errors.first().error(), expected) << verify;
    }
    // curl's own host-name check leaves an unspecified verify result.
    const auto misnamed = Nubra::sslErrorsFor(
        CURLE_PEER_FAILED_VERIFICATION, X509_V_ERR_UNSPECIFIED,
        "SSL: no alternative certificate subject name matches target host name '127.0.0.1'");
    ASSERT_EQ(misnamed.size(), 1);
    EXPECT_EQ(misnamed.first().error(), QSslError::HostNameMismatch);
    const auto badFile = Nubra::sslErrorsFor(CURLE_SSL_CACERT_BADFILE, X509_V_OK);
    ASSERT_EQ(badFile.size(), 1);
    EXPECT_EQ(badFile.first().error(), QSslError::UnableToGetLocalIssuerCertificate);
}
