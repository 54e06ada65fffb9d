// SPDX-License-Identifier: MIT
// The four chaining modes and the paddings over a BlockCipher, writing into
// one preallocated buffer. The order of the checks (key first, then iv, then
// mode) matches the reference so that the same inputs fail the same way.
//
// Where the mode allows it the blocks go to the cipher in one call so that
// an implementation can work on several at once: ECB both ways, CBC and CFB
// decryption. CBC and CFB encryption and OFB are sequential by nature.

#include "AesImplementation.h"

#include <cstring>

namespace VornAes {
namespace {

bool isKnownMode(AESEncryption::Mode mode)
{
    return mode == AESEncryption::Ecb || mode == AESEncryption::Cbc || mode == AESEncryption::Cfb ||
           mode == AESEncryption::Ofb;
}

void xorInto(std::uint8_t* target, const std::uint8_t* source, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i)
        target[i] ^= source[i];
}

std::uint8_t* bytes(std::string& s)
{
    return reinterpret_cast<std::uint8_t*>(&s[0]);
}

const std::uint8_t* bytes(const std::string& s)
{
    return reinterpret_cast<const std::uint8_t*>(s.data());
}

// Padding bytes to append to a text of `size` bytes.
std::size_t paddingLength(std::size_t size, AESEncryption::Padding padding)
{
    const std::size_t p = (kBlockSize - size % kBlockSize) % kBlockSize;
    if (padding == AESEncryption::Pkcs7)
        return p > 0 ? p : kBlockSize;
    return p;
}

} // namespace

std::string crypt(Implementation implementation, AESEncryption::Aes level, AESEncryption::Mode mode,
                  const std::string& rawText, const std::string& key, const std::string& iv,
                  AESEncryption::Padding padding)
{
    const ExpandedKey expanded(level, key);
    if (mode != AESEncryption::Ecb && iv.size() != kBlockSize)
        return std::string();
    if (!isKnownMode(mode))
        return std::string();
    const auto cipher = makeBlockCipher(implementation, expanded.roundKeys(), roundsOf(level));
    if (!cipher)
        return std::string();

    // Whole blocks are read straight from the text; the last one, holding the
    // text's tail and the padding, is put together on the side.
    const std::size_t size = rawText.size();
    const std::size_t pad = paddingLength(size, padding);
    const std::size_t fullBlocks = size / kBlockSize;
    const std::size_t tail = size % kBlockSize;
    const bool extraBlock = tail + pad > 0;
    std::uint8_t last[kBlockSize] = {};
    std::memcpy(last, bytes(rawText) + fullBlocks * kBlockSize, tail);
    if (padding == AESEncryption::Pkcs7)
        std::memset(last + tail, static_cast<int>(pad), pad);
    else if (padding == AESEncryption::Iso && pad > 0)
        last[tail] = 0x80;

    std::string out(size + pad, '\0');
    const std::size_t blocks = fullBlocks + (extraBlock ? 1 : 0);
    const std::uint8_t* in = bytes(rawText);
    auto source = [&](std::size_t b) { return b < fullBlocks ? in + b * kBlockSize : last; };
    std::uint8_t* data = bytes(out);
    std::uint8_t block[kBlockSize];
    switch (mode) {
    case AESEncryption::Ecb:
        cipher->encryptBlocks(in, data, fullBlocks);
        if (extraBlock)
            cipher->encryptBlocks(last, data + fullBlocks * kBlockSize, 1);
        break;
    case AESEncryption::Cbc: {
        const std::uint8_t* chain = bytes(iv);
        for (std::size_t b = 0; b < blocks; ++b, data += kBlockSize) {
            std::memcpy(block, source(b), kBlockSize);
            xorInto(block, chain, kBlockSize);
            cipher->encryptBlocks(block, data, 1);
            chain = data;
        }
        break;
    }
    case AESEncryption::Cfb: {
        const std::uint8_t* feedback = bytes(iv);
        for (std::size_t b = 0; b < blocks; ++b, data += kBlockSize) {
            cipher->encryptBlocks(feedback, data, 1);
            xorInto(data, source(b), kBlockSize);
            feedback = data;
        }
        break;
    }
    case AESEncryption::Ofb: {
        std::memcpy(block, iv.data(), kBlockSize);
        for (std::size_t b = 0; b < blocks; ++b, data += kBlockSize) {
            cipher->encryptBlocks(block, block, 1);
            std::memcpy(data, source(b), kBlockSize);
            xorInto(data, block, kBlockSize);
        }
        break;
    }
    }
    return out;
}

std::string decrypt(Implementation implementation, AESEncryption::Aes level, AESEncryption::Mode mode,
                    const std::string& rawText, const std::string& key, const std::string& iv)
{
    const ExpandedKey expanded(level, key);
    if (mode != AESEncryption::Ecb && iv.size() != kBlockSize)
        return std::string();
    if (!isKnownMode(mode))
        return std::string();
    const auto cipher = makeBlockCipher(implementation, expanded.roundKeys(), roundsOf(level));
    if (!cipher)
        return std::string();

    const std::size_t size = rawText.size();
    const std::size_t full = size / kBlockSize;
    const std::size_t tail = size % kBlockSize;
    std::string out(size, '\0');
    if (size == 0)
        return out;
    const std::uint8_t* in = bytes(rawText);
    std::uint8_t* data = bytes(out);

    switch (mode) {
    case AESEncryption::Ecb:
        cipher->decryptBlocks(in, data, full);
        if (tail)
            cipher->decryptShortBlock(in + full * kBlockSize, data + full * kBlockSize, tail);
        break;
    case AESEncryption::Cbc:
        cipher->decryptBlocks(in, data, full);
        for (std::size_t b = 0; b < full; ++b)
            xorInto(data + b * kBlockSize, b == 0 ? bytes(iv) : in + (b - 1) * kBlockSize, kBlockSize);
        if (tail) {
            cipher->decryptShortBlock(in + full * kBlockSize, data + full * kBlockSize, tail);
            xorInto(data + full * kBlockSize, full == 0 ? bytes(iv) : in + (full - 1) * kBlockSize, tail);
        }
        break;
    case AESEncryption::Cfb: {
        // Key stream block b is E(c[b-1]) with c[-1] = iv; all are known up
        // front, so they go to the cipher in batches.
        constexpr std::size_t kBatch = 64;
        std::uint8_t stream[kBatch * kBlockSize];
        const std::size_t total = full + (tail ? 1 : 0);
        for (std::size_t first = 0; first < total; first += kBatch) {
            const std::size_t n = total - first < kBatch ? total - first : kBatch;
            for (std::size_t j = 0; j < n; ++j) {
                const std::size_t b = first + j;
                std::memcpy(stream + j * kBlockSize, b == 0 ? bytes(iv) : in + (b - 1) * kBlockSize, kBlockSize);
            }
            cipher->encryptBlocks(stream, stream, n);
            for (std::size_t j = 0; j < n; ++j) {
                const std::size_t b = first + j;
                const std::size_t len = b < full ? kBlockSize : tail;
                std::memcpy(data + b * kBlockSize, in + b * kBlockSize, len);
                xorInto(data + b * kBlockSize, stream + j * kBlockSize, len);
            }
        }
        break;
    }
    case AESEncryption::Ofb: {
        std::uint8_t stream[kBlockSize];
        std::memcpy(stream, iv.data(), kBlockSize);
        std::memcpy(data, in, size);
        for (std::size_t off = 0; off < size; off += kBlockSize) {
            cipher->encryptBlocks(stream, stream, 1);
            xorInto(data + off, stream, size - off < kBlockSize ? size - off : kBlockSize);
        }
        break;
    }
    }
    return out;
}

} // namespace VornAes
