// SPDX-License-Identifier: MIT
#pragma once

// A self-signed certificate for TLS servers in tests (header only: the
// command-line tool's tests use it without the test support library).

#include <QProcess>
#include <QString>

namespace VornTest {

// Writes a self-signed certificate (valid two days) for one name, and its
// key, with the openssl command line; `name` is an IP address or a DNS name.
// True when openssl succeeded.
inline bool makeSelfSignedCertificate(const QString& certPath, const QString& keyPath,
                                      const QString& name = QStringLiteral("127.0.0.1"))
{
    const bool isAddress = !name.isEmpty() && name.at(0).isDigit();
    const QString altName = (isAddress ? QStringLiteral("IP:") : QStringLiteral("DNS:")) + name;
    return QProcess::execute(QStringLiteral("openssl"),
                             {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=" + name,
                              "-addext", "subjectAltName=" + altName, "-keyout", keyPath, "-out", certPath}) == 0;
}

} // namespace VornTest
