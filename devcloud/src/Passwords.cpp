// SPDX-License-Identifier: MIT
#include "Passwords.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

namespace devcloud {

namespace {
constexpr int kIterations = 20000;
constexpr int kHashBytes = 32;
} // namespace

QByteArray newSalt()
{
    QByteArray salt(16, '\0');
    RAND_bytes(reinterpret_cast<unsigned char*>(salt.data()), salt.size());
    return salt;
}

QByteArray hashPassword(const QString& password, const QByteArray& salt)
{
    const QByteArray utf8 = password.toUtf8();
    QByteArray hash(kHashBytes, '\0');
    PKCS5_PBKDF2_HMAC(utf8.constData(), utf8.size(), reinterpret_cast<const unsigned char*>(salt.constData()),
                      salt.size(), kIterations, EVP_sha256(), kHashBytes,
                      reinterpret_cast<unsigned char*>(hash.data()));
    return hash;
}

bool passwordMatches(const QString& password, const QByteArray& salt, const QByteArray& hash)
{
    const QByteArray computed = hashPassword(password, salt);
    return computed.size() == hash.size() && CRYPTO_memcmp(computed.constData(), hash.constData(), hash.size()) == 0;
}

QString newToken()
{
    QByteArray bytes(32, '\0');
    RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size());
    return QString::fromLatin1(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QString tokenHash(const QString& token)
{
    const QByteArray utf8 = token.toUtf8();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(utf8.constData(), size_t(utf8.size()), digest, &length, EVP_sha256(), nullptr);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex());
}

} // namespace devcloud
