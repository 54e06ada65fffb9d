// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

typedef struct evp_pkey_st EVP_PKEY;

namespace devcloud {

// The dev cloud's Ed25519 key for signing its upgrade catalogue, kept in
// the data folder (upgrade-signing-key.pem, PKCS#8 PEM, owner-only) so
// that a cloud started again on the same folder signs with the same key.
class PackageSigner {
public:
    static constexpr const char* kKeyFileName = "upgrade-signing-key.pem";

    // Loads the key from dataDir, or creates it there at first start.
    // nullptr with *error when neither works.
    static std::unique_ptr<PackageSigner> loadOrCreate(const QString& dataDir, QString* error);
    ~PackageSigner();

    // Base64 of the raw 32-byte public key, as the client configuration
    // pins it.
    QString publicKeyBase64() const { return m_publicKey; }

    // Base64 of the signature over the package's canonical bytes (the form
    // docs/upgrade.md defines, which a maker signs with openssl pkeyutl);
    // empty when the fields cannot be put in that form.
    QString sign(const QString& modelCode, const QString& version, qint64 size, const QString& sha256) const;

    // The canonical bytes themselves.
    static QByteArray canonicalBytes(const QString& modelCode, const QString& version, qint64 size,
                                     const QString& sha256);

private:
    explicit PackageSigner(EVP_PKEY* key);
    EVP_PKEY* m_key;
    QString m_publicKey;
};

} // namespace devcloud
