// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace devcloud {

// TLS files for a server on loopback, made at start-up with the openssl
// command line: a certificate authority made for this run and a server
// certificate it signed for 127.0.0.1 and localhost (EC P-256 keys, valid
// two days). The authority's key is deleted once it has signed, so nothing
// else can be signed with it.
struct LoopbackCertificates {
    QString caFile;   // what clients trust
    QString certFile; // the server's certificate
    QString keyFile;  // its key, readable by its owner only

    // Writes ca.pem, cert.pem and key.pem into folder (which must exist).
    bool generate(const QString& folder, QString* error);
};

} // namespace devcloud
