// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Error.h>

#include <QList>
#include <QSslError>

#include <curl/curl.h>

namespace Nubra {

// Maps a libcurl result onto the client's error numbers.
Error::ErrorCode errorForCurl(CURLcode code);
// Maps a TLS verification failure (curl code, OpenSSL X509 verify result and
// curl's error text) onto Qt's TLS error values.
QList<QSslError> sslErrorsFor(CURLcode code, long verifyResult, const QString& curlMessage = QString());

} // namespace Nubra
