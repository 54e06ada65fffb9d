#pragma once

#include <cstdint>
#include <string>

// AES (FIPS-197) over byte strings: 128-, 192- and 256-bit keys, four
// chaining modes and three paddings. Every std::string here is a byte string
// (any value 0..255, zero bytes included).
//
// Two ways in:
// - The static entry points (Crypt, Decrypt, ExpandKey, RemovePadding) are
//   what callers use. They run on the fastest implementation this processor
//   has (AES-NI when present, a constant-time bitsliced one otherwise) and
//   may be called from several threads at once.
// - The object interface (encode, decode, ...) is the table-based reference:
//   byte at a time, every read bounds-checked. It gives the same bytes and
//   the same exceptions as the entry points and is what they are tested
//   against. One object must not be shared between threads (m_state points
//   into the block being worked on).
//
// Failures: an empty result (chaining mode without a 16-byte iv, unknown
// mode) or std::out_of_range (key shorter than the level needs, padding that
// points outside the text, an all-zero text under Zero or Iso removal).
// A cipher text whose length is not a multiple of 16 is deciphered anyway:
// the short last block is treated as zero-extended and yields as many bytes
// as it had, so a decoded text is always as long as its input.
class AESEncryption {
public:
    enum Aes { Aes128 = 0, Aes192 = 1, Aes256 = 2 };
    enum Mode { Ecb = 0, Cbc = 1, Cfb = 2, Ofb = 3 };
    enum Padding { Zero = 0, Pkcs7 = 1, Iso = 2 };

    // Encrypts rawText padded under `padding`. `iv` must be 16 bytes except in Ecb.
    static std::string Crypt(AESEncryption::Aes level, AESEncryption::Mode mode, const std::string& rawText,
                             const std::string& key, const std::string& iv, AESEncryption::Padding padding);
    // Decrypts rawText. The padding is NOT removed (see RemovePadding).
    static std::string Decrypt(AESEncryption::Aes level, AESEncryption::Mode mode, const std::string& rawText,
                               const std::string& key, const std::string& iv, AESEncryption::Padding padding);
    // The key schedule; any key bytes beyond the level's length follow it.
    static std::string ExpandKey(AESEncryption::Aes level, AESEncryption::Mode mode, const std::string& key);
    // Strips `padding` from a decrypted text; may throw std::out_of_range.
    static std::string RemovePadding(const std::string& rawText, AESEncryption::Padding padding);

    AESEncryption(AESEncryption::Aes level, AESEncryption::Mode mode, AESEncryption::Padding padding);

    std::string encode(const std::string& rawText, const std::string& key, const std::string& iv);
    std::string decode(const std::string& rawText, const std::string& key, const std::string& iv);
    std::string encodeWithExpanedKey(const std::string& rawText, const std::string& expandedKey,
                                     const std::string& iv);
    std::string decodeWithExpanedKey(const std::string& rawText, const std::string& expandedKey,
                                     const std::string& iv);
    std::string removePadding(const std::string& rawText);
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
