// SPDX-License-Identifier: MIT
#include "upgrade/PackageSignature.h"

#include <QCryptographicHash>
#include <QVariantMap>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace Nubra::PackageSignature {

namespace {

constexpr int kKeyBytes = 32;
constexpr int kSignatureBytes = 64;

using PkeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

bool fitsOnALine(const QString& text)
{
    return !text.isEmpty() && !text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r'))
           && !text.contains(QChar(0));
}

bool isLowerHexDigest(const QString& text)
{
    if (text.size() != 64)
        return false;
    for (QChar c : text)
        if (!((c >= QLatin1Char('0') && c <= QLatin1Char('9')) || (c >= QLatin1Char('a') && c <= QLatin1Char('f'))))
            return false;
    return true;
}

// The raw 32 bytes of a key given as base64 of the raw key or of its DER
// SubjectPublicKeyInfo; empty when it is neither.
QByteArray rawKeyOf(const QString& base64)
{
    const auto decoded = QByteArray::fromBase64Encoding(base64.trimmed().toLatin1(),
                                                        QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return {};
    const QByteArray bytes = *decoded;
    if (bytes.size() == kKeyBytes)
        return bytes;
    const auto* cursor = reinterpret_cast<const unsigned char*>(bytes.constData());
    PkeyPtr key(d2i_PUBKEY(nullptr, &cursor, long(bytes.size())), &EVP_PKEY_free);
    if (!key || EVP_PKEY_id(key.get()) != EVP_PKEY_ED25519
        || cursor != reinterpret_cast<const unsigned char*>(bytes.constData()) + bytes.size())
        return {};
    QByteArray raw(kKeyBytes, Qt::Uninitialized);
    size_t length = size_t(raw.size());
    if (EVP_PKEY_get_raw_public_key(key.get(), reinterpret_cast<unsigned char*>(raw.data()), &length) != 1
        || length != size_t(kKeyBytes))
        return {};
    return raw;
}

bool verifiesWith(const QByteArray& rawKey, const QByteArray& message, const QByteArray& signature)
{
    PkeyPtr key(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                            reinterpret_cast<const unsigned char*>(rawKey.constData()),
                                            size_t(rawKey.size())),
                &EVP_PKEY_free);
    MdCtxPtr context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    if (!key || !context)
        return false;
    // Ed25519 hashes internally: no digest is named, and the message goes
    // in one call.
    if (EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1)
        return false;
    return EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char*>(signature.constData()),
                            size_t(signature.size()), reinterpret_cast<const unsigned char*>(message.constData()),
                            size_t(message.size()))
           == 1;
}

} // namespace

QByteArray canonicalBytes(const SignedFields& fields)
{
    if (!fitsOnALine(fields.modelCode) || !fitsOnALine(fields.version) || fields.packageSize < 0
        || !isLowerHexDigest(fields.sha256))
        return {};
    QByteArray bytes("nubra-package-v1\n");
    bytes += "modelCode=" + fields.modelCode.toUtf8() + '\n';
    bytes += "version=" + fields.version.toUtf8() + '\n';
    bytes += "packageSize=" + QByteArray::number(fields.packageSize) + '\n';
    bytes += "sha256=" + fields.sha256.toLatin1() + '\n';
    return bytes;
}

std::optional<QList<TrustedKey>> keysFromConfig(const QVariant& signingKeys, QString* why)
{
    QList<TrustedKey> keys;
    if (!signingKeys.isValid() || signingKeys.isNull())
        return keys;
    if (signingKeys.userType() != QMetaType::QVariantList) {
        *why = QStringLiteral("\"upgrade.signingKeys\" must be a list");
        return std::nullopt;
    }
    const QVariantList entries = signingKeys.toList();
    for (int i = 0; i < entries.size(); ++i) {
        const QVariant& entry = entries.at(i);
        const bool isMap = entry.userType() == QMetaType::QVariantMap;
        const QString encoded = isMap ? entry.toMap().value(QStringLiteral("publicKey")).toString() : entry.toString();
        TrustedKey key;
        key.raw = rawKeyOf(encoded);
        if (key.raw.isEmpty()) {
            *why = QStringLiteral("\"upgrade.signingKeys\" entry %1 is not an Ed25519 public key "
                                  "(base64 of the 32-byte key or of its DER SubjectPublicKeyInfo)")
                       .arg(i);
            return std::nullopt;
        }
        key.fingerprint = QStringLiteral("ed25519:")
                          + QString::fromLatin1(
                              QCryptographicHash::hash(key.raw, QCryptographicHash::Sha256).toHex().left(16));
        key.name = isMap ? entry.toMap().value(QStringLiteral("name")).toString() : QString();
        if (key.name.isEmpty())
            key.name = key.fingerprint;
        keys.append(key);
    }
    return keys;
}

std::optional<TrustedKey> verify(const QList<TrustedKey>& keys, const QByteArray& message,
                                 const QString& signatureBase64, QString* why)
{
    if (signatureBase64.isEmpty()) {
        *why = QStringLiteral("the package entry carries no signature");
        return std::nullopt;
    }
    const auto signature = QByteArray::fromBase64Encoding(signatureBase64.toLatin1(),
                                                          QByteArray::AbortOnBase64DecodingErrors);
    if (!signature || signature.decoded.size() != kSignatureBytes) {
        *why = QStringLiteral("the package signature is not 64 bytes of base64");
        return std::nullopt;
    }
    if (message.isEmpty()) {
        *why = QStringLiteral("the package entry cannot be put in its signed form");
        return std::nullopt;
    }
    // Rotation: any pinned key may have signed.
    for (const TrustedKey& key : keys)
        if (verifiesWith(key.raw, message, signature.decoded))
            return key;
    *why = QStringLiteral("the package signature verifies with none of the %1 pinned key(s)").arg(keys.size());
    return std::nullopt;
}

Verdict checkPackage(const QVariant& signingKeys, const SignedFields& fields, const QString& signatureBase64)
{
    Verdict verdict;
    const auto keys = keysFromConfig(signingKeys, &verdict.message);
    if (!keys) {
        verdict.code = Error::ConfigMalformed;
        return verdict;
    }
    if (keys->isEmpty())
        return verdict;
    QString why;
    const auto signer = verify(*keys, canonicalBytes(fields), signatureBase64, &why);
    if (!signer) {
        verdict.code = Error::SignatureInvalid;
        verdict.message = QStringLiteral("package %1 %2 refused: %3").arg(fields.modelCode, fields.version, why);
        return verdict;
    }
    verdict.signedBy = signer->name;
    return verdict;
}

} // namespace Nubra::PackageSignature
