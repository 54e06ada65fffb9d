// SPDX-License-Identifier: MIT
#include "GeneratedFile.h"

#include <QFile>
#include <QSaveFile>

#include <openssl/evp.h>

#include <memory>
#include <vector>

namespace devcloud {

namespace {

struct Digest {
    Digest() : ctx(EVP_MD_CTX_new()) { EVP_DigestInit_ex(ctx, EVP_sha256(), nullptr); }
    ~Digest() { EVP_MD_CTX_free(ctx); }
    void update(const void* data, size_t size) { EVP_DigestUpdate(ctx, data, size); }
    QString hex()
    {
        unsigned char out[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_DigestFinal_ex(ctx, out, &length);
        return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(out), int(length)).toHex());
    }
    EVP_MD_CTX* ctx;
};

std::uint64_t fnv1a(const QByteArray& text)
{
    std::uint64_t hash = 1469598103934665603ULL;
    for (char c : text) {
        hash ^= std::uint8_t(c);
        hash *= 1099511628211ULL;
    }
    return hash;
}

// splitmix64: fast, and good enough that no two packages look alike.
std::uint64_t next(std::uint64_t& state)
{
    std::uint64_t z = (state += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

} // namespace

QString writeGeneratedFile(const QString& path, std::int64_t size, const QString& seed, QString* error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return {};
    }
    Digest digest;
    std::uint64_t state = fnv1a(seed.toUtf8());
    constexpr std::int64_t kBlock = 1024 * 1024;
    std::vector<std::uint64_t> block(kBlock / 8);
    for (std::int64_t done = 0; done < size;) {
        for (auto& word : block)
            word = next(state);
        const std::int64_t n = std::min(kBlock, size - done);
        digest.update(block.data(), size_t(n));
        if (file.write(reinterpret_cast<const char*>(block.data()), n) != n) {
            *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
            return {};
        }
        done += n;
    }
    if (!file.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
        return {};
    }
    return digest.hex();
}

QString sha256OfFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    Digest digest;
    std::vector<char> buffer(1024 * 1024);
    for (;;) {
        const qint64 got = file.read(buffer.data(), qint64(buffer.size()));
        if (got < 0)
            return {};
        if (got == 0)
            break;
        digest.update(buffer.data(), size_t(got));
    }
    return digest.hex();
}

} // namespace devcloud
