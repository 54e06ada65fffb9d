// SPDX-License-Identifier: MIT
#include "AESEncryption.h"

#include "aes/AesImplementation.h"

// The object interface below is the table-based reference: one byte at a
// time, every read bounds-checked (std::string::at), strings grown block by
// block. The static entry points give the same bytes through the fast
// implementations of aes/ and are tested against this code.

namespace {

struct LevelRow {
    std::int32_t nk;
    std::int32_t keyLen;
    std::int32_t nr;
    std::int32_t expandedKey; // 209 for Aes192 is one more than its schedule; kept as published
};

const LevelRow kLevelRows[3] = {
    {4, 16, 10, 176},
    // Aes192's 209 is one more than its schedule; kept for compatibility with applications built against this
    // interface.
    {6, 24, 12, 209},
    {8, 32, 14, 240},
};

AESEncryption::Aes normalisedLevel(AESEncryption::Aes level)
{
    return (level == AESEncryption::Aes192 || level == AESEncryption::Aes256) ? level : AESEncryption::Aes128;
}

unsigned char xtime(unsigned char x)
{
    return static_cast<unsigned char>((x << 1) ^ ((x & 0x80) ? 0x1b : 0x00));
}

// Multiplication in GF(2^8) by doubling, as the column mixing needs it.
unsigned char gmul(unsigned char a, unsigned char b)
{
    unsigned char product = 0;
    while (b) {
        if (b & 1)
            product ^= a;
        a = xtime(a);
        b >>= 1;
    }
    return product;
}

unsigned char byteAt(const std::string& s, std::size_t i)
{
    return static_cast<unsigned char>(s.at(i));
}

} // namespace

const unsigned char AESEncryption::sbox[256] = {
    0x63, 0x7c, 0x77, 0x7b, 0xf2, 0x6b, 0x6f, 0xc5, 0x30, 0x01, 0x67, 0x2b, 0xfe, 0xd7, 0xab, 0x76,
    0xca, 0x82, 0xc9, 0x7d, 0xfa, 0x59, 0x47, 0xf0, 0xad, 0xd4, 0xa2, 0xaf, 0x9c, 0xa4, 0x72, 0xc0,
    0xb7, 0xfd, 0x93, 0x26, 0x36, 0x3f, 0xf7, 0xcc, 0x34, 0xa5, 0xe5, 0xf1, 0x71, 0xd8, 0x31, 0x15,
    0x04, 0xc7, 0x23, 0xc3, 0x18, 0x96, 0x05, 0x9a, 0x07, 0x12, 0x80, 0xe2, 0xeb, 0x27, 0xb2, 0x75,
    0x09, 0x83, 0x2c, 0x1a, 0x1b, 0x6e, 0x5a, 0xa0, 0x52, 0x3b, 0xd6, 0xb3, 0x29, 0xe3, 0x2f, 0x84,
    0x53, 0xd1, 0x00, 0xed, 0x20, 0xfc, 0xb1, 0x5b, 0x6a, 0xcb, 0xbe, 0x39, 0x4a, 0x4c, 0x58, 0xcf,
    0xd0, 0xef, 0xaa, 0xfb, 0x43, 0x4d, 0x33, 0x85, 0x45, 0xf9, 0x02, 0x7f, 0x50, 0x3c, 0x9f, 0xa8,
    0x51, 0xa3, 0x40, 0x8f, 0x92, 0x9d, 0x38, 0xf5, 0xbc, 0xb6, 0xda, 0x21, 0x10, 0xff, 0xf3, 0xd2,
    0xcd, 0x0c, 0x13, 0xec, 0x5f, 0x97, 0x44, 0x17, 0xc4, 0xa7, 0x7e, 0x3d, 0x64, 0x5d, 0x19, 0x73,
    0x60, 0x81, 0x4f, 0xdc, 0x22, 0x2a, 0x90, 0x88, 0x46, 0xee, 0xb8, 0x14, 0xde, 0x5e, 0x0b, 0xdb,
    0xe0, 0x32, 0x3a, 0x0a, 0x49, 0x06, 0x24, 0x5c, 0xc2, 0xd3, 0xac, 0x62, 0x91, 0x95, 0xe4, 0x79,
    0xe7, 0xc8, 0x37, 0x6d, 0x8d, 0xd5, 0x4e, 0xa9, 0x6c, 0x56, 0xf4, 0xea, 0x65, 0x7a, 0xae, 0x08,
    0xba, 0x78, 0x25, 0x2e, 0x1c, 0xa6, 0xb4, 0xc6, 0xe8, 0xdd, 0x74, 0x1f, 0x4b, 0xbd, 0x8b, 0x8a,
    0x70, 0x3e, 0xb5, 0x66, 0x48, 0x03, 0xf6, 0x0e, 0x61, 0x35, 0x57, 0xb9, 0x86, 0xc1, 0x1d, 0x9e,
    0xe1, 0xf8, 0x98, 0x11, 0x69, 0xd9, 0x8e, 0x94, 0x9b, 0x1e, 0x87, 0xe9, 0xce, 0x55, 0x28, 0xdf,
    0x8c, 0xa1, 0x89, 0x0d, 0xbf, 0xe6, 0x42, 0x68, 0x41, 0x99, 0x2d, 0x0f, 0xb0, 0x54, 0xbb, 0x16,
};

const unsigned char AESEncryption::rsbox[256] = {
    0x52, 0x09, 0x6a, 0xd5, 0x30, 0x36, 0xa5, 0x38, 0xbf, 0x40, 0xa3, 0x9e, 0x81, 0xf3, 0xd7, 0xfb,
    0x7c, 0xe3, 0x39, 0x82, 0x9b, 0x2f, 0xff, 0x87, 0x34, 0x8e, 0x43, 0x44, 0xc4, 0xde, 0xe9, 0xcb,
    0x54, 0x7b, 0x94, 0x32, 0xa6, 0xc2, 0x23, 0x3d, 0xee, 0x4c, 0x95, 0x0b, 0x42, 0xfa, 0xc3, 0x4e,
    0x08, 0x2e, 0xa1, 0x66, 0x28, 0xd9, 0x24, 0xb2, 0x76, 0x5b, 0xa2, 0x49, 0x6d, 0x8b, 0xd1, 0x25,
    0x72, 0xf8, 0xf6, 0x64, 0x86, 0x68, 0x98, 0x16, 0xd4, 0xa4, 0x5c, 0xcc, 0x5d, 0x65, 0xb6, 0x92,
    0x6c, 0x70, 0x48, 0x50, 0xfd, 0xed, 0xb9, 0xda, 0x5e, 0x15, 0x46, 0x57, 0xa7, 0x8d, 0x9d, 0x84,
    0x90, 0xd8, 0xab, 0x00, 0x8c, 0xbc, 0xd3, 0x0a, 0xf7, 0xe4, 0x58, 0x05, 0xb8, 0xb3, 0x45, 0x06,
    0xd0, 0x2c, 0x1e, 0x8f, 0xca, 0x3f, 0x0f, 0x02, 0xc1, 0xaf, 0xbd, 0x03, 0x01, 0x13, 0x8a, 0x6b,
    0x3a, 0x91, 0x11, 0x41, 0x4f, 0x67, 0xdc, 0xea, 0x97, 0xf2, 0xcf, 0xce, 0xf0, 0xb4, 0xe6, 0x73,
    0x96, 0xac, 0x74, 0x22, 0xe7, 0xad, 0x35, 0x85, 0xe2, 0xf9, 0x37, 0xe8, 0x1c, 0x75, 0xdf, 0x6e,
    0x47, 0xf1, 0x1a, 0x71, 0x1d, 0x29, 0xc5, 0x89, 0x6f, 0xb7, 0x62, 0x0e, 0xaa, 0x18, 0xbe, 0x1b,
    0xfc, 0x56, 0x3e, 0x4b, 0xc6, 0xd2, 0x79, 0x20, 0x9a, 0xdb, 0xc0, 0xfe, 0x78, 0xcd, 0x5a, 0xf4,
    0x1f, 0xdd, 0xa8, 0x33, 0x88, 0x07, 0xc7, 0x31, 0xb1, 0x12, 0x10, 0x59, 0x27, 0x80, 0xec, 0x5f,
    0x60, 0x51, 0x7f, 0xa9, 0x19, 0xb5, 0x4a, 0x0d, 0x2d, 0xe5, 0x7a, 0x9f, 0x93, 0xc9, 0x9c, 0xef,
    0xa0, 0xe0, 0x3b, 0x4d, 0xae, 0x2a, 0xf5, 0xb0, 0xc8, 0xeb, 0xbb, 0x3c, 0x83, 0x53, 0x99, 0x61,
    0x17, 0x2b, 0x04, 0x7e, 0xba, 0x77, 0xd6, 0x26, 0xe1, 0x69, 0x14, 0x63, 0x55, 0x21, 0x0c, 0x7d,
};

const unsigned char AESEncryption::Rcon[16] = {
    0x8d, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x1b, 0x36, 0x6c, 0xd8, 0xab, 0x00, 0x00,
};

std::string AESEncryption::Crypt(AESEncryption::Aes level, AESEncryption::Mode mode, const std::string& rawText,
                                 const std::string& key, const std::string& iv, AESEncryption::Padding padding)
{
    return VornAes::crypt(VornAes::fastestAvailable(), level, mode, rawText, key, iv, padding);
}

std::string AESEncryption::Decrypt(AESEncryption::Aes level, AESEncryption::Mode mode, const std::string& rawText,
                                   const std::string& key, const std::string& iv, AESEncryption::Padding)
{
    // The padding is deliberately left on (kept for compatibility with
    // applications built against this interface): callers strip it with RemovePadding
    // or, like the protected-data codec's callers, cut at the first zero byte.
    return VornAes::decrypt(VornAes::fastestAvailable(), level, mode, rawText, key, iv);
}

std::string AESEncryption::ExpandKey(AESEncryption::Aes level, AESEncryption::Mode, const std::string& key)
{
    return VornAes::expandKey(level, key);
}

std::string AESEncryption::RemovePadding(const std::string& rawText, AESEncryption::Padding padding)
{
    std::string text = rawText;
    if (text.empty())
        return text;
    switch (padding) {
    case Zero:
        // An all-zero text empties the string and the next at() throws.
        while (text.at(text.size() - 1) == '\0')
            text.pop_back();
        break;
    case Pkcs7: {
        // The count is read as a signed byte and trusted: a count beyond the
        // text (or a negative one) makes erase() throw std::out_of_range.
        // The signed, trusted count is kept for compatibility with applications built against this interface.
        const int n = static_cast<signed char>(text.back());
        text.erase(text.size() - n, n);
        break;
    }
    case Iso: {
        std::size_t i = text.size() - 1;
        while (text.at(i) == '\0')
            --i; // wraps past the front of an all-zero text, and at() throws
        if (static_cast<unsigned char>(text[i]) == 0x80)
            text.erase(i);
        break;
    }
    default:
        break;
    }
    return text;
}

AESEncryption::AESEncryption(AESEncryption::Aes level, AESEncryption::Mode mode, AESEncryption::Padding padding)
    : m_nb(4), m_blocklen(16), m_level(normalisedLevel(level)), m_mode(mode), m_nk(kLevelRows[m_level].nk),
      m_keyLen(kLevelRows[m_level].keyLen), m_nr(kLevelRows[m_level].nr),
      m_expandedKey(kLevelRows[m_level].expandedKey), m_padding(padding), m_state(nullptr)
{
}

std::string AESEncryption::encode(const std::string& rawText, const std::string& key, const std::string& iv)
{
    return encodeWithExpanedKey(rawText, expandKey(key), iv);
}

std::string AESEncryption::decode(const std::string& rawText, const std::string& key, const std::string& iv)
{
    return decodeWithExpanedKey(rawText, expandKey(key), iv);
}

// The spelling "Expaned" is kept for compatibility with applications built against this interface.
std::string AESEncryption::encodeWithExpanedKey(const std::string& rawText, const std::string& expandedKey,
                                                const std::string& iv)
{
    if (m_mode != Ecb && iv.size() != m_blocklen)
        return std::string();
    if (m_mode != Ecb && m_mode != Cbc && m_mode != Cfb && m_mode != Ofb)
        return std::string();
    const std::string padded =
        rawText + getPadding(static_cast<int>(rawText.size()), static_cast<int>(m_blocklen));

    std::string out;
    std::string chain = iv;
    for (std::size_t off = 0; off < padded.size(); off += m_blocklen) {
        const std::string block = padded.substr(off, m_blocklen);
        switch (m_mode) {
        case Ecb:
            out += cipher(expandedKey, block);
            break;
        case Cbc:
            chain = cipher(expandedKey, byteXor(block, chain));
            out += chain;
            break;
        case Cfb:
            chain = byteXor(block, cipher(expandedKey, chain));
            out += chain;
            break;
        case Ofb:
            chain = cipher(expandedKey, chain);
            out += byteXor(block, chain);
            break;
        default:
            return std::string();
        }
    }
    return out;
}

std::string AESEncryption::decodeWithExpanedKey(const std::string& rawText, const std::string& expandedKey,
                                                const std::string& iv)
{
    if (m_mode != Ecb && iv.size() != m_blocklen)
        return std::string();
    if (m_mode != Ecb && m_mode != Cbc && m_mode != Cfb && m_mode != Ofb)
        return std::string();

    std::string out;
    std::string chain = iv;
    for (std::size_t off = 0; off < rawText.size(); off += m_blocklen) {
        const std::string block = rawText.substr(off, m_blocklen);
        // A short last block is deciphered as if zero-extended and yields as
        // many bytes as it had, so the output is as long as the input.
        std::string whole = block;
        whole.resize(m_blocklen, '\0');
        switch (m_mode) {
        case Ecb:
            out += invCipher(expandedKey, whole).substr(0, block.size());
            break;
        case Cbc:
            out += byteXor(invCipher(expandedKey, whole).substr(0, block.size()), chain);
            chain = block;
            break;
        case Cfb:
            out += byteXor(block, cipher(expandedKey, chain));
            chain = block;
            break;
        case Ofb:
            chain = cipher(expandedKey, chain);
            out += byteXor(block, chain);
            break;
        default:
            return std::string();
        }
    }
    return out;
}

std::string AESEncryption::removePadding(const std::string& rawText)
{
    return RemovePadding(rawText, m_padding);
}

std::string AESEncryption::expandKey(const std::string& key)
{
    std::string result = key;
    for (std::int32_t i = m_nk; i < m_nb * (m_nr + 1); ++i) {
        unsigned char word[4];
        for (int k = 0; k < 4; ++k)
            word[k] = byteAt(result, 4 * (i - 1) + k);
        if (i % m_nk == 0) {
            const unsigned char first = word[0];
            word[0] = word[1];
            word[1] = word[2];
            word[2] = word[3];
            word[3] = first;
            for (unsigned char& b : word)
                b = sbox[b];
            word[0] ^= Rcon[i / m_nk];
        } else if (i % m_nk == 4 && m_level == Aes256) {
            for (unsigned char& b : word)
                b = sbox[b];
        }
        for (int k = 0; k < 4; ++k)
            word[k] ^= byteAt(result, 4 * (i - m_nk) + k);
        result.insert(static_cast<std::size_t>(4 * i), reinterpret_cast<const char*>(word), 4);
    }
    return result;
}

std::string AESEncryption::getPadding(int currSize, int alignment)
{
    const int p = (alignment - currSize % alignment) % alignment;
    switch (m_padding) {
    case Pkcs7: {
        const int n = p > 0 ? p : alignment;
        return std::string(static_cast<std::size_t>(n), static_cast<char>(n));
    }
    case Iso:
        // Unlike Pkcs7, no whole block is added to an aligned text.
        // No block for an aligned text, unlike Pkcs7: kept for compatibility with applications built against
        // this interface.
        if (p == 0)
            return std::string();
        return std::string(1, '\x80') + std::string(static_cast<std::size_t>(p - 1), '\0');
    default:
        return std::string(static_cast<std::size_t>(p), '\0');
    }
}

std::string AESEncryption::cipher(const std::string& expKey, const std::string& in)
{
    std::string result = in;
    m_state = &result;
    addRoundKey(0, expKey);
    for (std::int32_t round = 1; round < m_nr; ++round) {
        subBytes();
        shiftRows();
        mixColumns();
        addRoundKey(static_cast<unsigned char>(round), expKey);
    }
    subBytes();
    shiftRows();
    addRoundKey(static_cast<unsigned char>(m_nr), expKey);
    m_state = nullptr;
    return result;
}

std::string AESEncryption::invCipher(const std::string& expKey, const std::string& in)
{
    std::string result = in;
    m_state = &result;
    addRoundKey(static_cast<unsigned char>(m_nr), expKey);
    for (std::int32_t round = m_nr - 1; round >= 1; --round) {
        invShiftRows();
        invSubBytes();
        addRoundKey(static_cast<unsigned char>(round), expKey);
        invInScan3Columns();
    }
    invShiftRows();
    invSubBytes();
    addRoundKey(0, expKey);
    m_state = nullptr;
    return result;
}

void AESEncryption::addRoundKey(unsigned char round, std::string expKey)
{
    for (int c = 0; c < 4; ++c)
        for (int r = 0; r < 4; ++r)
            m_state->at(4 * c + r) ^= expKey.at((round * m_nb + c) * 4 + r);
}

void AESEncryption::subBytes()
{
    for (std::size_t i = 0; i < 16; ++i)
        m_state->at(i) = static_cast<char>(sbox[byteAt(*m_state, i)]);
}

void AESEncryption::invSubBytes()
{
    for (std::size_t i = 0; i < 16; ++i)
        m_state->at(i) = static_cast<char>(rsbox[byteAt(*m_state, i)]);
}

void AESEncryption::shiftRows()
{
    const std::string old = *m_state;
    for (int r = 1; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m_state->at(4 * c + r) = old.at(4 * ((c + r) % 4) + r);
}

void AESEncryption::invShiftRows()
{
    const std::string old = *m_state;
    for (int r = 1; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m_state->at(4 * ((c + r) % 4) + r) = old.at(4 * c + r);
}

void AESEncryption::mixColumns()
{
    for (int c = 0; c < 4; ++c) {
        unsigned char a[4];
        for (int r = 0; r < 4; ++r)
            a[r] = byteAt(*m_state, 4 * c + r);
        for (int r = 0; r < 4; ++r) {
            const unsigned char v =
                xtime(a[r]) ^ (xtime(a[(r + 1) % 4]) ^ a[(r + 1) % 4]) ^ a[(r + 2) % 4] ^ a[(r + 3) % 4];
            m_state->at(4 * c + r) = static_cast<char>(v);
        }
    }
}

// The name is kept for compatibility with applications built against this interface.
void AESEncryption::invInScan3Columns()
{
    for (int c = 0; c < 4; ++c) {
        unsigned char a[4];
        for (int r = 0; r < 4; ++r)
            a[r] = byteAt(*m_state, 4 * c + r);
        for (int r = 0; r < 4; ++r) {
            const unsigned char v = gmul(a[r], 0x0e) ^ gmul(a[(r + 1) % 4], 0x0b) ^ gmul(a[(r + 2) % 4], 0x0d) ^
                                    gmul(a[(r + 3) % 4], 0x09);
            m_state->at(4 * c + r) = static_cast<char>(v);
        }
    }
}

std::string AESEncryption::byteXor(const std::string& a, const std::string& b)
{
    const std::size_t n = a.size() < b.size() ? a.size() : b.size();
    std::string out;
    for (std::size_t k = 0; k < n; ++k)
        out.push_back(static_cast<char>(a.at(k) ^ b.at(k)));
    return out;
}
