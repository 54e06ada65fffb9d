// SPDX-License-Identifier: MIT
#include "PackageSigner.h"

#include <QFile>

#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdio>

namespace devcloud {

namespace {

QString pemPath(const QString& dataDir) { return dataDir + QLatin1Char('/') + QLatin1String(PackageSigner::kKeyFileName); }

EVP_PKEY* readKey(const QString& path)
{
    FILE* file = std::fopen(QFile::encodeName(path).constData(), "rb");
    if (!file)
        return nullptr;
    EVP_PKEY* key = PEM_read_PrivateKey(file, nullptr, nullptr, nullptr);
    std::fclose(file);
    if (key && EVP_PKEY_id(key) != EVP_PKEY_ED25519) {
        EVP_PKEY_free(key);
        return nullptr;
    }
    return key;
}

EVP_PKEY* createKey(const QString& path, QString* error)
{
    EVP_PKEY* key = nullptr;
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_id(EVP_PKEY_ED25519, nullptr);
    if (!context || EVP_PKEY_keygen_init(context) != 1 || EVP_PKEY_keygen(context, &key) != 1) {
        EVP_PKEY_CTX_free(context);
        *error = QStringLiteral("cannot generate an Ed25519 key");
        return nullptr;
    }
    EVP_PKEY_CTX_free(context);
    // Owner-only from the start: the file is created with mode 0600.
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly)
        || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        *error = QStringLiteral("cannot create %1: %2").arg(path, file.errorString());
        EVP_PKEY_free(key);
        return nullptr;
    }
    file.close();
    FILE* out = std::fopen(QFile::encodeName(path).constData(), "wb");
    const bool written = out && PEM_write_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
    if (out)
        std::fclose(out);
    if (!written) {
        *error = QStringLiteral("cannot write %1").arg(path);
        QFile::remove(path);
        EVP_PKEY_free(key);
        return nullptr;
    }
    return key;
}

} // namespace

std::unique_ptr<PackageSigner> PackageSigner::loadOrCreate(const QString& dataDir, QString* error)
{
    const QString path = pemPath(dataDir);
    EVP_PKEY* key = nullptr;
    if (QFile::exists(path)) {
        key = readKey(path);
        if (!key)
            *error = QStringLiteral("%1 holds no Ed25519 private key").arg(path);
    } else {
        key = createKey(path, error);
    }
    if (!key)
        return nullptr;
    return std::unique_ptr<PackageSigner>(new PackageSigner(key));
}

PackageSigner::PackageSigner(EVP_PKEY* key)
    : m_key(key)
{
    QByteArray raw(32, Qt::Uninitialized);
    size_t length = size_t(raw.size());
    if (EVP_PKEY_get_raw_public_key(m_key, reinterpret_cast<unsigned char*>(raw.data()), &length) == 1)
        m_publicKey = QString::fromLatin1(raw.left(int(length)).toBase64());
}

PackageSigner::~PackageSigner() { EVP_PKEY_free(m_key); }

QByteArray PackageSigner::canonicalBytes(const QString& modelCode, const QString& version, qint64 size,
                                         const QString& sha256)
{
    auto oneLine = [](const QString& text) {
        return !text.isEmpty() && !text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r'));
    };
    if (!oneLine(modelCode) || !oneLine(version) || size < 0 || sha256.size() != 64)
        return {};
    QByteArray bytes("nubra-package-v1\n");
    bytes += "modelCode=" + modelCode.toUtf8() + '\n';
    bytes += "version=" + version.toUtf8() + '\n';
    bytes += "packageSize=" + QByteArray::number(size) + '\n';
    bytes += "sha256=" + sha256.toLower().toLatin1() + '\n';
    return bytes;
}

QString PackageSigner::sign(const QString& modelCode, const QString& version, qint64 size,
                            const QString& sha256) const
{
    const QByteArray message = canonicalBytes(modelCode, version, size, sha256);
    if (message.isEmpty())
        return {};
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    QByteArray signature(64, Qt::Uninitialized);
    size_t length = size_t(signature.size());
    // Ed25519 signs the whole message in one call, without a named digest.
    const bool ok = context && EVP_DigestSignInit(context, nullptr, nullptr, nullptr, m_key) == 1
                    && EVP_DigestSign(context, reinterpret_cast<unsigned char*>(signature.data()), &length,
                                      reinterpret_cast<const unsigned char*>(message.constData()),
                                      size_t(message.size()))
                           == 1;
    EVP_MD_CTX_free(context);
    return ok ? QString::fromLatin1(signature.left(int(length)).toBase64()) : QString();
}

} // namespace devcloud
