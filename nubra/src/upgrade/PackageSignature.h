// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Error.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVariant>

#include <optional>

namespace Nubra {

// Ed25519 signatures over update packages (docs/upgrade.md, "Signed
// packages"): the canonical bytes that are signed, the public keys the
// client configuration pins, and the check. OpenSSL's EVP does the
// cryptography.
namespace PackageSignature {

// What a package's signature covers.
struct SignedFields {
    QString modelCode;
    QString version;
    qint64 packageSize = -1;
    QString sha256; // 64 lowercase hex digits
};

// One pinned public key.
struct TrustedKey {
    QString name;       // as configured, else the fingerprint
    QByteArray raw;     // the 32-byte Ed25519 public key
    QString fingerprint;// "ed25519:" + first 16 hex digits of SHA-256(raw)
};

// The signed bytes: UTF-8 lines ending in "\n",
//   nubra-package-v1
//   modelCode=<modelCode>
//   version=<version>
//   packageSize=<decimal>
//   sha256=<lowercase hex>
// Empty when a field cannot be put in that form (a line break or NUL in a
// text, a negative size, a digest that is not 64 hex digits).
QByteArray canonicalBytes(const SignedFields& fields);

// The configuration's "upgrade"."signingKeys": a list of
// {"name", "publicKey"} objects (or plain key strings); a key is the
// base64 of the raw 32-byte key or of its DER SubjectPublicKeyInfo.
// nullopt with *why when an entry is unusable; an empty list when there
// is none (signatures are then not required).
std::optional<QList<TrustedKey>> keysFromConfig(const QVariant& signingKeys, QString* why);

// The key that verifies `signatureBase64` (a 64-byte Ed25519 signature in
// base64) over `message`; nullopt with *why when none does.
std::optional<TrustedKey> verify(const QList<TrustedKey>& keys, const QByteArray& message,
                                 const QString& signatureBase64, QString* why);

// The whole check of one package entry against the pinned keys (the
// configuration's "upgrade"."signingKeys"). No key pinned: NoError with an
// empty signedBy. Else NoError with the verifying key's name, or
// SignatureInvalid (or ConfigMalformed for an unusable key) with why.
struct Verdict {
    Error::ErrorCode code = Error::NoError;
    QString message;
    QString signedBy;
};
Verdict checkPackage(const QVariant& signingKeys, const SignedFields& fields, const QString& signatureBase64);

} // namespace PackageSignature
} // namespace Nubra
