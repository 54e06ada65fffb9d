#include "eddata.h"

#include "AESEncryption.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

namespace {

// The codec key, 4F1A77C208935E21B46D0CE839A512F0, as 16 raw bytes.
const std::string kCodecKey("\x4F\x1A\x77\xC2\x08\x93\x5E\x21\xB4\x6D\x0C\xE8\x39\xA5\x12\xF0", 16);

// The standard base64 alphabet; the look-up tables below are built from it at
// compile time.
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Two output characters per 12 input bits: halves the look-ups of encoding.
struct PairTable {
    std::array<char, 2 * 4096> chars{};
    constexpr PairTable()
    {
        for (int v = 0; v < 4096; ++v) {
            chars[2 * v] = kAlphabet[v >> 6];
            chars[2 * v + 1] = kAlphabet[v & 63];
        }
    }
};

// Decoding: the 6-bit value of a character already shifted into place for
// each of the four positions of a group, or kInvalid for a character that
// ends the text ("=" and everything outside the alphabet). The mapping is the
// first position of the character in the alphabet, as a search would find.
constexpr std::uint32_t kInvalid = 0x01000000;

struct DecodeTables {
    std::array<std::array<std::uint32_t, 256>, 4> shifted{};
    constexpr DecodeTables()
    {
        for (auto& table : shifted)
            for (auto& entry : table)
                entry = kInvalid;
        for (int v = 63; v >= 0; --v) {
            const auto c = static_cast<unsigned char>(kAlphabet[v]);
            shifted[0][c] = static_cast<std::uint32_t>(v) << 18;
            shifted[1][c] = static_cast<std::uint32_t>(v) << 12;
            shifted[2][c] = static_cast<std::uint32_t>(v) << 6;
            shifted[3][c] = static_cast<std::uint32_t>(v);
        }
    }
};

constexpr PairTable kPairs;
constexpr DecodeTables kDecode;

void putGroup(char* out, std::uint32_t v)
{
    std::memcpy(out, &kPairs.chars[2 * (v >> 12)], 2);
    std::memcpy(out + 2, &kPairs.chars[2 * (v & 0xFFF)], 2);
}

std::string restore(const std::string& key, const std::string& text)
{
    const std::string bytes = EDData::base64_decode(text);
    // Zero padding stays on: both forms return the decrypted blocks as they are.
    return AESEncryption::Decrypt(AESEncryption::Aes128, AESEncryption::Ecb, bytes, key, std::string(),
                                  AESEncryption::Zero);
}

} // namespace

std::string EDData::base64_encode(const unsigned char* bytes, unsigned int length)
{
    const std::size_t groups = length / 3;
    const std::size_t rest = length % 3;
    std::string out((groups + (rest ? 1 : 0)) * 4, '\0');
    char* o = &out[0];
    const unsigned char* in = bytes;
    for (std::size_t g = 0; g < groups; ++g, in += 3, o += 4)
        putGroup(o, static_cast<std::uint32_t>(in[0]) << 16 | static_cast<std::uint32_t>(in[1]) << 8 | in[2]);
    if (rest) {
        // Completed with zero bytes; rest + 1 characters, then "=" up to four.
        const std::uint32_t v =
            static_cast<std::uint32_t>(in[0]) << 16 | (rest == 2 ? static_cast<std::uint32_t>(in[1]) << 8 : 0);
        putGroup(o, v);
        o[3] = '=';
        if (rest == 1)
            o[2] = '=';
    }
    return out;
}

std::string EDData::base64_decode(const std::string& text)
{
    const auto* in = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t size = text.size();
    std::string out(size / 4 * 3 + 2, '\0');
    char* o = &out[0];

    // Whole groups of four valid characters; stop at the first group that
    // holds an invalid one and finish that group character by character.
    std::size_t i = 0;
    for (; i + 4 <= size; i += 4, o += 3) {
        const std::uint32_t v = kDecode.shifted[0][in[i]] | kDecode.shifted[1][in[i + 1]] |
                                kDecode.shifted[2][in[i + 2]] | kDecode.shifted[3][in[i + 3]];
        if (v & kInvalid)
            break;
        o[0] = static_cast<char>(v >> 16);
        o[1] = static_cast<char>(v >> 8);
        o[2] = static_cast<char>(v);
    }

    // At most three valid characters remain before the end or the stop.
    std::uint32_t v = 0;
    int count = 0;
    for (; i < size && count < 4; ++i) {
        const std::uint32_t d = kDecode.shifted[3][in[i]];
        if (d & kInvalid)
            break;
        v = v << 6 | d;
        ++count;
    }
    if (count == 2) {
        *o++ = static_cast<char>(v >> 4);
    } else if (count == 3) {
        *o++ = static_cast<char>(v >> 10);
        *o++ = static_cast<char>(v >> 2);
    }
    out.resize(static_cast<std::size_t>(o - out.data()));
    return out;
}

std::string EDData::global_serialize(std::string plain)
{
    const std::string cipher = AESEncryption::Crypt(AESEncryption::Aes128, AESEncryption::Ecb, plain, kCodecKey,
                                                    std::string(), AESEncryption::Zero);
    return base64_encode(reinterpret_cast<const unsigned char*>(cipher.data()),
                         static_cast<unsigned int>(cipher.size()));
}

std::string EDData::global_deserialize(const std::string& text)
{
    return restore(kCodecKey, text);
}

std::string EDData::global_deserialize(const std::string& key, const std::string& text)
{
    return restore(key, text);
}

std::string EDData::readFile(std::string path)
{
    std::ifstream file(path, std::ios::in | std::ios::binary);
    if (!file.good()) {
        std::cout << "readfile fail!" << path << std::endl;
        return std::string();
    }
    std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    file.close();
    return content;
}

bool EDData::writeFile(std::string path, std::string content)
{
    std::ofstream file(path, std::ios::out | std::ios::binary | std::ios::trunc);
    if (!file.is_open())
        return false;
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.flush();
    file.close();
    return true;
}
