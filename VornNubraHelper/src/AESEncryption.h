// SPDX-License-Identifier: MIT
#pragma once

#include "VornNubraHelperExport.h"

#include <cstdint>
#include <string>

/// \file AESEncryption.h
/// The AES block cipher, AESEncryption.

/// AES (FIPS-197) over byte strings: 128-, 192- and 256-bit keys, four
/// chaining modes and three paddings. Every std::string here is a byte
/// string (any value 0..255, zero bytes included).
///
/// Two ways in:
/// - The static entry points (Crypt(), Decrypt(), ExpandKey(),
///   RemovePadding()) are what callers use. They run on the fastest
///   implementation this processor has (AES-NI when present, a
///   constant-time bitsliced one otherwise) and may be called from several
///   threads at once.
/// - The object interface (encode(), decode(), ...) is the table-based
///   reference: byte at a time, every read bounds-checked. It gives the same
///   bytes and the same exceptions as the entry points. One object must not
///   be shared between threads.
///
/// Failures: an empty result (a chaining mode without a 16-byte iv, an
/// unknown mode) or std::out_of_range (a key shorter than the level needs,
/// padding that points outside the text, an all-zero text under Zero or Iso
/// removal). A cipher text whose length is not a multiple of 16 is
/// deciphered anyway: the short last block is treated as zero-extended and
/// yields as many bytes as it had, so a decoded text is always as long as
/// its input.
class VORN_NUBRA_HELPER_EXPORT AESEncryption {
public:
    /// Key size.
    enum Aes {
        Aes128 = 0, ///< 16-byte key, 10 rounds.
        Aes192 = 1, ///< 24-byte key, 12 rounds.
        Aes256 = 2, ///< 32-byte key, 14 rounds.
    };
    /// Chaining mode (NIST SP 800-38A).
    enum Mode {
        Ecb = 0, ///< Electronic codebook; no iv.
        Cbc = 1, ///< Cipher block chaining; 16-byte iv.
        Cfb = 2, ///< Cipher feedback (128-bit segments); 16-byte iv.
        Ofb = 3, ///< Output feedback; 16-byte iv.
    };
    /// Padding added before encryption (and removed by RemovePadding()).
    enum Padding {
        Zero = 0,  ///< Zero bytes up to the block size; nothing is added to a text that fills its blocks.
        Pkcs7 = 1, ///< n bytes of value n (PKCS #7), always at least one.
        Iso = 2,   ///< 0x80 then zero bytes (ISO/IEC 7816-4); unlike Pkcs7, nothing is added to a text that fills its blocks.
    };

    /// Encrypts `rawText` padded under `padding` with `key` (its first 16,
    /// 24 or 32 bytes by `level`). `iv` must be 16 bytes except in Ecb.
    /// Returns the cipher text, or an empty string; throws
    /// std::out_of_range for a short key.
    static std::string Crypt(AESEncryption::Aes level, AESEncryption::Mode mode, const std::string& rawText,
                             const std::string& key, const std::string& iv, AESEncryption::Padding padding);
    /// Decrypts `rawText`. The padding is NOT removed (see RemovePadding()).
    /// Returns an empty string or throws as Crypt() does.
    static std::string Decrypt(AESEncryption::Aes level, AESEncryption::Mode mode, const std::string& rawText,
                               const std::string& key, const std::string& iv, AESEncryption::Padding padding);
    /// The key schedule (FIPS-197 section 5.2) of `key`; any key bytes
    /// beyond the level's length follow it. Throws std::out_of_range for a
    /// short key.
    static std::string ExpandKey(AESEncryption::Aes level, AESEncryption::Mode mode, const std::string& key);
    /// Strips `padding` from a decrypted text. Throws std::out_of_range for
    /// padding that points outside the text, or an all-zero text under Zero
    /// or Iso.
    static std::string RemovePadding(const std::string& rawText, AESEncryption::Padding padding);

    /// A reference cipher for one level, mode and padding.
    AESEncryption(AESEncryption::Aes level, AESEncryption::Mode mode, AESEncryption::Padding padding);

    /// Crypt() with this object's settings, on the reference implementation.
    std::string encode(const std::string& rawText, const std::string& key, const std::string& iv);
    /// Decrypt() with this object's settings, on the reference implementation.
    std::string decode(const std::string& rawText, const std::string& key, const std::string& iv);
    /// encode() with a key schedule made by expandKey() or ExpandKey(). The
    /// spelling "Expaned" is kept for compatibility with applications built
    /// against this interface.
    std::string encodeWithExpanedKey(const std::string& rawText, const std::string& expandedKey,
                                     const std::string& iv);
    /// decode() with a key schedule made by expandKey() or ExpandKey().
    std::string decodeWithExpanedKey(const std::string& rawText, const std::string& expandedKey,
                                     const std::string& iv);
    /// RemovePadding() with this object's padding.
    std::string removePadding(const std::string& rawText);
    /// ExpandKey() with this object's level.
    std::string expandKey(const std::string& key);

private:
    std::string getPadding(int currSize, int alignment);
    std::string cipher(const std::string& expKey, const std::string& in);
    std::string invCipher(const std::string& expKey, const std::string& in);
    void addRoundKey(unsigned char round, std::string expKey);
    void subBytes();
    void shiftRows();
    void mixColumns();
    void invSubBytes();
    void invShiftRows();
    void invInScan3Columns();
    std::string byteXor(const std::string& a, const std::string& b);

    std::int32_t m_nb;
    std::uint64_t m_blocklen;
    Aes m_level;
    Mode m_mode;
    std::int32_t m_nk;
    // Kept for the layout of the object; the key schedule counts words, and a
    // short key fails on its bounds-checked reads.
    [[maybe_unused]] std::int32_t m_keyLen;
    std::int32_t m_nr;
    [[maybe_unused]] std::int32_t m_expandedKey; // 209 for Aes192, one more than its schedule
    Padding m_padding;
    std::string* m_state;

    static const unsigned char sbox[256];
    static const unsigned char rsbox[256];
    static const unsigned char Rcon[16];
};
