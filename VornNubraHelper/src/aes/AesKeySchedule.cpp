// SPDX-License-Identifier: MIT
// The FIPS-197 key schedule without secret-dependent table look-ups, laid
// out exactly as AESEncryption::expandKey lays it out.

#include "AesImplementation.h"

#include <cstring>

namespace VornAes {

int roundsOf(AESEncryption::Aes level)
{
    switch (level) {
    case AESEncryption::Aes192:
        return 12;
    case AESEncryption::Aes256:
        return 14;
    default:
        return 10;
    }
}

std::string expandKey(AESEncryption::Aes level, const std::string& key)
{
    const int rounds = roundsOf(level);
    const int nk = rounds - 6; // key words: 4, 6 or 8
    const std::size_t keyLen = static_cast<std::size_t>(4 * nk);
    if (key.size() < keyLen) {
        // The reference reads the last key word first, byte by byte with
        // at(): the same reads give the same exception and message, kept for
        // compatibility with applications built against this interface.
        for (std::size_t i = keyLen - 4; i < keyLen; ++i)
            static_cast<void>(key.at(i));
    }

    const int words = 4 * (rounds + 1);
    std::string result(static_cast<std::size_t>(4 * words), '\0');
    // Room for the key's extra bytes up front: a reallocation would leave a
    // copy of the schedule in freed memory (see ExpandedKey).
    result.reserve(result.size() + key.size() - keyLen);
    std::memcpy(&result[0], key.data(), keyLen);
    std::uint8_t rcon = 0x01;
    for (int i = nk; i < words; ++i) {
        std::uint8_t t[4];
        std::memcpy(t, result.data() + 4 * (i - 1), 4);
        const bool rotate = i % nk == 0;
        const bool substitute = rotate || (nk == 8 && i % nk == 4);
        if (rotate) {
            const std::uint8_t first = t[0];
            t[0] = t[1];
            t[1] = t[2];
            t[2] = t[3];
            t[3] = first;
        }
        if (substitute) {
            const std::uint32_t w = static_cast<std::uint32_t>(t[0]) | static_cast<std::uint32_t>(t[1]) << 8 |
                                    static_cast<std::uint32_t>(t[2]) << 16 | static_cast<std::uint32_t>(t[3]) << 24;
            const std::uint32_t s = subWordConstantTime(w);
            for (int k = 0; k < 4; ++k)
                t[k] = static_cast<std::uint8_t>(s >> (8 * k));
        }
        if (rotate) {
            t[0] ^= rcon;
            rcon = static_cast<std::uint8_t>((rcon << 1) ^ ((rcon & 0x80) ? 0x1b : 0));
        }
        for (int k = 0; k < 4; ++k)
            result[4 * i + k] = static_cast<char>(t[k] ^ static_cast<std::uint8_t>(result[4 * (i - nk) + k]));
    }
    // Key bytes beyond the level's length end up behind the schedule.
    result.append(key, keyLen, std::string::npos);
    return result;
}

} // namespace VornAes
