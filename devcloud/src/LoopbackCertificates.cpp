// SPDX-License-Identifier: MIT
#include "LoopbackCertificates.h"

#include "ChildProcess.h"

#include <QFile>
#include <QRandomGenerator>

namespace devcloud {

bool LoopbackCertificates::generate(const QString& folder, QString* error)
{
    caFile = folder + QStringLiteral("/ca.pem");
    certFile = folder + QStringLiteral("/cert.pem");
    keyFile = folder + QStringLiteral("/key.pem");
    const QByteArray caKey = (folder + QStringLiteral("/ca-key.pem")).toLocal8Bit();
    const QByteArray request = (folder + QStringLiteral("/server.csr")).toLocal8Bit();
    const QByteArray extensions = (folder + QStringLiteral("/server.ext")).toLocal8Bit();
    const QByteArray serial = "0x" + QByteArray::number(QRandomGenerator::system()->generate64() >> 1, 16);
    auto cleanUp = [&] {
        for (const QByteArray& path : {caKey, request, extensions})
            QFile::remove(QString::fromLocal8Bit(path));
    };

    QFile extensionFile(QString::fromLocal8Bit(extensions));
    if (!extensionFile.open(QIODevice::WriteOnly)) {
        *error = QStringLiteral("cannot write %1").arg(extensionFile.fileName());
        return false;
    }
    // The addresses clients check the host against, and a leaf that cannot
    // act as an authority itself.
    extensionFile.write("subjectAltName=IP:127.0.0.1,DNS:localhost\n"
                        "basicConstraints=critical,CA:FALSE\n"
                        "keyUsage=critical,digitalSignature\n"
                        "extendedKeyUsage=serverAuth\n");
    extensionFile.close();

    const bool made =
        runToCompletion({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                         "-nodes", "-days", "2", "-subj", "/CN=nubra-devcloud local CA", "-addext",
                         "basicConstraints=critical,CA:TRUE", "-addext", "keyUsage=critical,keyCertSign,cRLSign",
                         "-keyout", caKey, "-out", caFile.toLocal8Bit()},
                        error)
        && runToCompletion({"openssl", "req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                            "-nodes", "-subj", "/CN=127.0.0.1", "-keyout", keyFile.toLocal8Bit(), "-out", request},
                           error)
        && runToCompletion({"openssl", "x509", "-req", "-in", request, "-CA", caFile.toLocal8Bit(), "-CAkey", caKey,
                            "-set_serial", serial, "-days", "2", "-extfile", extensions, "-out",
                            certFile.toLocal8Bit()},
                           error);
    cleanUp();
    if (made)
        QFile::setPermissions(keyFile, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return made;
}

} // namespace devcloud
