// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <openssl/evp.h>

namespace Nubra {

// Incremental SHA-256 (OpenSSL EVP), for digests of files that never sit
// in memory as a whole.
class Sha256 {
public:
    Sha256() : m_ctx(EVP_MD_CTX_new()) { reset(); }
    ~Sha256() { EVP_MD_CTX_free(m_ctx); }
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void reset() { EVP_DigestInit_ex(m_ctx, EVP_sha256(), nullptr); }
    void update(const char* data, size_t size) { EVP_DigestUpdate(m_ctx, data, size); }
    // Lower-case hex digest; the object must be reset() before reuse.
    QByteArray hexDigest()
    {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        EVP_DigestFinal_ex(m_ctx, digest, &length);
        return QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex();
    }

private:
    EVP_MD_CTX* m_ctx;
};

} // namespace Nubra
