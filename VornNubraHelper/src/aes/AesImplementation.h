// SPDX-License-Identifier: MIT
#pragma once

// Private to the helper library: the fast AES implementations behind
// AESEncryption's static entry points. Not installed.
//
// Implementations are named after their property:
// - ConstantTime: portable, bitsliced, no table look-up or branch that
//   depends on key or data. Always available.
// - AesNi: the x86 AES instructions; compiled only for x86 and usable only
//   when the processor reports them (isAvailable).

#include "AESEncryption.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace VornAes {

constexpr std::size_t kBlockSize = 16;

enum class Implementation { ConstantTime, AesNi };

// One keyed block cipher. Blocks are independent; `in` may equal `out`.
class BlockCipher {
public:
    virtual ~BlockCipher() = default;
    virtual void encryptBlocks(const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) const = 0;
    virtual void decryptBlocks(const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) const = 0;

    // The short-block rule of every decryption here: a last block of fewer
    // than 16 bytes (`size`) is deciphered as if zero-extended and yields as
    // many bytes as it had, so a decoded text is always as long as its input.
    void decryptShortBlock(const std::uint8_t* in, std::uint8_t* out, std::size_t size) const;
};

// Overwrites key material so that it does not stay behind in freed memory;
// the writes go through a volatile pointer and cannot be optimised away.
void wipe(void* data, std::size_t size);

// An expanded key (see expandKey) that is wiped when it goes.
class ExpandedKey {
public:
    ExpandedKey(AESEncryption::Aes level, const std::string& key);
    ~ExpandedKey();
    ExpandedKey(const ExpandedKey&) = delete;
    ExpandedKey& operator=(const ExpandedKey&) = delete;

    const std::uint8_t* roundKeys() const { return reinterpret_cast<const std::uint8_t*>(m_bytes.data()); }

private:
    std::string m_bytes;
};

bool isAvailable(Implementation implementation);
const char* nameOf(Implementation implementation);
// AesNi when the processor has it, ConstantTime otherwise; decided once.
Implementation fastestAvailable();

// `roundKeys` holds (rounds + 1) round keys of 16 bytes in FIPS-197 order.
// Returns null for an implementation that is not available.
std::unique_ptr<BlockCipher> makeBlockCipher(Implementation implementation, const std::uint8_t* roundKeys,
                                             int rounds);

// Per-implementation factories (AesConstantTime.cpp, AesNi.cpp).
std::unique_ptr<BlockCipher> makeConstantTimeCipher(const std::uint8_t* roundKeys, int rounds);
std::unique_ptr<BlockCipher> makeAesNiCipher(const std::uint8_t* roundKeys, int rounds);
bool aesNiCompiledIn();

// The S-box applied to each byte of a 32-bit word, computed without tables.
std::uint32_t subWordConstantTime(std::uint32_t word);

// Number of rounds of a level (a value other than Aes192/Aes256 means Aes128).
int roundsOf(AESEncryption::Aes level);

// The key schedule, byte-identical to AESEncryption::expandKey: the schedule
// followed by any key bytes beyond the level's length. A key shorter than
// the level needs fails as the reference's bounds-checked reads fail: with
// the standard library's own std::out_of_range from std::string::at.
std::string expandKey(AESEncryption::Aes level, const std::string& key);

// AESEncryption::Crypt / Decrypt on a chosen implementation.
std::string crypt(Implementation implementation, AESEncryption::Aes level, AESEncryption::Mode mode,
                  const std::string& rawText, const std::string& key, const std::string& iv,
                  AESEncryption::Padding padding);
std::string decrypt(Implementation implementation, AESEncryption::Aes level, AESEncryption::Mode mode,
                    const std::string& rawText, const std::string& key, const std::string& iv);

} // namespace VornAes
