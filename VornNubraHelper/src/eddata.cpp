// SPDX-License-Identifier: MIT
#include "eddata.h"

#include "AESEncryption.h"
#include "aes/AesImplementation.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

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

// Base64 of `length` bytes into `out`, which has room for 4 * ceil(length / 3)
// characters; a final group of one or two bytes is completed with zero bytes
// and followed by "=" up to four characters.
void encodeInto(const unsigned char* in, std::size_t length, char* out)
{
    for (std::size_t g = length / 3; g > 0; --g, in += 3, out += 4)
        putGroup(out, static_cast<std::uint32_t>(in[0]) << 16 | static_cast<std::uint32_t>(in[1]) << 8 | in[2]);
    const std::size_t rest = length % 3;
    if (rest) {
        const std::uint32_t v =
            static_cast<std::uint32_t>(in[0]) << 16 | (rest == 2 ? static_cast<std::uint32_t>(in[1]) << 8 : 0);
        putGroup(out, v);
        out[3] = '=';
        if (rest == 1)
            out[2] = '=';
    }
}

// Whole groups of four valid characters from in[*read] up to in[end] (a
// multiple of 4 from the start); stops before the first group that holds a
// character outside the alphabet. Returns the bytes written.
std::size_t decodeGroups(const unsigned char* in, std::size_t end, std::size_t* read, char* out)
{
    std::size_t i = *read;
    char* o = out;
    for (; i < end; i += 4, o += 3) {
        const std::uint32_t v = kDecode.shifted[0][in[i]] | kDecode.shifted[1][in[i + 1]] |
                                kDecode.shifted[2][in[i + 2]] | kDecode.shifted[3][in[i + 3]];
        if (v & kInvalid)
            break;
        o[0] = static_cast<char>(v >> 16);
        o[1] = static_cast<char>(v >> 8);
        o[2] = static_cast<char>(v);
    }
    *read = i;
    return static_cast<std::size_t>(o - out);
}

// What follows the whole groups: at most three valid characters before the
// end or the first invalid one. Two give one byte, three give two, a lone
// one nothing. Returns the bytes written.
std::size_t decodeTail(const unsigned char* in, std::size_t size, char* out)
{
    std::uint32_t v = 0;
    int count = 0;
    for (std::size_t i = 0; i < size && count < 3; ++i) {
        const std::uint32_t d = kDecode.shifted[3][in[i]];
        if (d & kInvalid)
            break;
        v = v << 6 | d;
        ++count;
    }
    if (count == 2) {
        out[0] = static_cast<char>(v >> 4);
        return 1;
    }
    if (count == 3) {
        out[0] = static_cast<char>(v >> 10);
        out[1] = static_cast<char>(v >> 2);
        return 2;
    }
    return 0;
}

std::unique_ptr<VornAes::BlockCipher> aes128(const std::string& key)
{
    const VornAes::ExpandedKey expanded(AESEncryption::Aes128, key);
    return VornAes::makeBlockCipher(VornAes::fastestAvailable(), expanded.roundKeys(),
                                    VornAes::roundsOf(AESEncryption::Aes128));
}

// base64_decode, then Decrypt(Aes128, Ecb, bytes, key, "", Zero), with the
// same bytes as a result but done a chunk at a time in one buffer: each run
// of decoded blocks is deciphered in place while it is still in the cache.
// The zero padding stays on: both forms return the decrypted blocks as they are.
std::string restore(const std::string& key, const std::string& text)
{
    const auto cipher = aes128(key); // a short key throws here, as in the cipher
    constexpr std::size_t kChunkChars = 4096;
    const auto* in = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t groupsEnd = text.size() / 4 * 4;
    std::string out(text.size() / 4 * 3 + 2, '\0');
    auto* data = reinterpret_cast<std::uint8_t*>(&out[0]);

    std::size_t read = 0;
    std::size_t written = 0;
    std::size_t deciphered = 0; // bytes of `out` already deciphered, whole blocks
    for (;;) {
        const std::size_t chunkEnd = groupsEnd - read < kChunkChars ? groupsEnd : read + kChunkChars;
        written += decodeGroups(in, chunkEnd, &read, &out[written]);
        const std::size_t blocks = (written - deciphered) / VornAes::kBlockSize;
        cipher->decryptBlocks(data + deciphered, data + deciphered, blocks);
        deciphered += blocks * VornAes::kBlockSize;
        if (read < chunkEnd || read == groupsEnd)
            break; // stopped at an invalid character, or all whole groups done
    }
    written += decodeTail(in + read, text.size() - read, &out[written]);
    out.resize(written);

    const std::size_t remaining = written - deciphered;
    const std::size_t blocks = remaining / VornAes::kBlockSize;
    cipher->decryptBlocks(data + deciphered, data + deciphered, blocks);
    deciphered += blocks * VornAes::kBlockSize;
    if (const std::size_t tail = written - deciphered)
        cipher->decryptShortBlock(data + deciphered, data + deciphered, tail);
    return out;
}

} // namespace

std::string EDData::base64_encode(const unsigned char* bytes, unsigned int length)
{
    std::string out((length + 2) / 3 * 4, '\0');
    encodeInto(bytes, length, &out[0]);
    return out;
}

std::string EDData::base64_decode(const std::string& text)
{
    std::string out(text.size() / 4 * 3 + 2, '\0');
    const auto* in = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t read = 0;
    std::size_t written = decodeGroups(in, text.size() / 4 * 4, &read, &out[0]);
    written += decodeTail(in + read, text.size() - read, &out[written]);
    out.resize(written);
    return out;
}

std::string EDData::global_serialize(std::string plain)
{
    // AES-128-ECB with zero padding, then base64: the same bytes as
    // base64_encode(Crypt(Aes128, Ecb, plain, key, "", Zero)), but done a
    // chunk at a time so that the cipher text never exists as a whole and
    // each chunk is encoded while it is still in the cache. A chunk is a
    // multiple of both the block (16) and the base64 group (3).
    constexpr std::size_t kChunk = 48 * 64;
    const std::size_t size = plain.size();
    const std::size_t cipherSize = (size + 15) / 16 * 16;
    std::string out((cipherSize + 2) / 3 * 4, '\0');
    if (size == 0)
        return out;

    const auto cipher = aes128(kCodecKey);
    const auto* in = reinterpret_cast<const std::uint8_t*>(plain.data());
    char* o = &out[0];
    std::uint8_t buffer[kChunk];
    for (std::size_t offset = 0; offset < cipherSize; offset += kChunk) {
        const std::size_t chunk = cipherSize - offset < kChunk ? cipherSize - offset : kChunk;
        const std::size_t available = size - offset < chunk ? size - offset : chunk;
        if (available < chunk) {
            // The last chunk: zero padding up to the block.
            std::memcpy(buffer, in + offset, available);
            std::memset(buffer + available, 0, chunk - available);
            cipher->encryptBlocks(buffer, buffer, chunk / 16);
        } else {
            cipher->encryptBlocks(in + offset, buffer, chunk / 16);
        }
        encodeInto(buffer, chunk, o);
        o += chunk / 3 * 4;
    }
    return out;
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
        // Standard output, not the log: kept for compatibility with applications built against this
        // interface.
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
