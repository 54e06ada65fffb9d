// SPDX-License-Identifier: MIT
// Paddings added by Crypt and removed by RemovePadding, with their
// deliberate asymmetries and the failures that must reach the caller.

#include "AESEncryption.h"
#include "CryptoTestSupport.h"

#include <gtest/gtest.h>

#include <stdexcept>

using CryptoTest::fromHex;

namespace {
const std::string kKey = fromHex("000102030405060708090a0b0c0d0e0f");
} // namespace

TEST(AesPadding, eachSchemeAddsItsBytesAndDecryptLeavesThemOn)
{
    struct Case {
        AESEncryption::Padding padding;
        std::string text;
        std::string padded;
    };
    const std::string a13(13, 'a'), a15(15, 'a'), a16(16, 'a');
    const Case cases[] = {
        {AESEncryption::Zero, "", ""},
        {AESEncryption::Zero, "a", "a" + std::string(15, '\0')},
        {AESEncryption::Zero, std::string(14, 'a'), std::string(14, 'a') + std::string(2, '\0')},
        {AESEncryption::Zero, a16, a16},
        {AESEncryption::Zero, a16 + "a", a16 + "a" + std::string(15, '\0')},
        {AESEncryption::Pkcs7, "", std::string(16, '\x10')}, // a whole block for empty text
        {AESEncryption::Pkcs7, a13, a13 + std::string(3, '\x03')},
        {AESEncryption::Pkcs7, a15, a15 + "\x01"},
        {AESEncryption::Pkcs7, a16, a16 + std::string(16, '\x10')},
        {AESEncryption::Iso, "", ""},
        {AESEncryption::Iso, a13, a13 + std::string("\x80\x00\x00", 3)},
        {AESEncryption::Iso, a15, a15 + "\x80"},
        {AESEncryption::Iso, a16, a16}, // unlike Pkcs7, no block added to aligned text
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "padding " << c.padding << " length " << c.text.size());
        const std::string cipher =
            AESEncryption::Crypt(AESEncryption::Aes128, AESEncryption::Ecb, c.text, kKey, "", c.padding);
        EXPECT_EQ(cipher.size(), c.padded.size());
        // Decrypt leaves the padding on, whatever padding it is told.
        EXPECT_EQ(AESEncryption::Decrypt(AESEncryption::Aes128, AESEncryption::Ecb, cipher, kKey, "", c.padding),
                  c.padded);
    }
}

TEST(AesPadding, removalOfEachScheme)
{
    struct Case {
        const char* what;
        AESEncryption::Padding padding;
        std::string text;
        std::string expected;
    };
    const Case cases[] = {
        {"empty text unchanged (Zero)", AESEncryption::Zero, "", ""},
        {"empty text unchanged (Pkcs7)", AESEncryption::Pkcs7, "", ""},
        {"empty text unchanged (Iso)", AESEncryption::Iso, "", ""},
        {"zeros stripped", AESEncryption::Zero, std::string("ab\0c\0\0", 6), std::string("ab\0c", 4)},
        {"pkcs7 count", AESEncryption::Pkcs7, "abcd\x02\x02", "abcd"},
        {"pkcs7 bytes not checked", AESEncryption::Pkcs7, "abc\x07\x02", "abc"},
        {"pkcs7 zero count", AESEncryption::Pkcs7, std::string("abc\0", 4), std::string("abc\0", 4)},
        {"pkcs7 whole text", AESEncryption::Pkcs7, "\x03\x03\x03", ""},
        {"iso marker", AESEncryption::Iso, std::string("ab\x80\0\0", 5), "ab"},
        {"iso marker last", AESEncryption::Iso, "ab\x80", "ab"},
        {"iso without marker", AESEncryption::Iso, std::string("ab\x7f\0", 4), std::string("ab\x7f\0", 4)},
        {"unknown padding unchanged", static_cast<AESEncryption::Padding>(3), std::string("ab\0", 3),
         std::string("ab\0", 3)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(AESEncryption::RemovePadding(c.text, c.padding), c.expected);
        AESEncryption object(AESEncryption::Aes128, AESEncryption::Ecb, c.padding);
        EXPECT_EQ(object.removePadding(c.text), c.expected);
    }
}

TEST(AesPadding, removalThatPointsOutsideTheTextThrows)
{
    struct Case {
        const char* what;
        AESEncryption::Padding padding;
        std::string text;
    };
    const Case cases[] = {
        {"all zeros under Zero", AESEncryption::Zero, std::string(5, '\0')},
        {"all zeros under Iso", AESEncryption::Iso, std::string(16, '\0')},
        {"pkcs7 count beyond the text", AESEncryption::Pkcs7, "ab\x05"},
        {"pkcs7 negative count", AESEncryption::Pkcs7, "ab\x80"},
        {"pkcs7 0xff", AESEncryption::Pkcs7, std::string(20, '\xff')},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_THROW(AESEncryption::RemovePadding(c.text, c.padding), std::out_of_range);
    }
}

TEST(AesPadding, decryptThenRemoveRestoresTextUnlessItLooksLikePadding)
{
    struct Case {
        const char* what;
        AESEncryption::Padding padding;
        std::string text;
        bool restored;
    };
    const Case cases[] = {
        {"pkcs7 aligned", AESEncryption::Pkcs7, std::string(16, 'a'), true},
        {"pkcs7 ending in 0x01", AESEncryption::Pkcs7, std::string(15, 'a') + "\x01", true},
        {"iso unaligned", AESEncryption::Iso, std::string(10, 'a'), true},
        {"iso aligned ending in 0x80", AESEncryption::Iso, std::string(15, 'a') + "\x80", false},
        {"zero unaligned", AESEncryption::Zero, std::string(10, 'a'), true},
        {"zero ending in a zero byte", AESEncryption::Zero, std::string("abc\0", 4), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string cipher =
            AESEncryption::Crypt(AESEncryption::Aes128, AESEncryption::Cbc, c.text, kKey, std::string(16, 'v'),
                                 c.padding);
        const std::string back = AESEncryption::RemovePadding(
            AESEncryption::Decrypt(AESEncryption::Aes128, AESEncryption::Cbc, cipher, kKey, std::string(16, 'v'),
                                   c.padding),
            c.padding);
        EXPECT_EQ(back == c.text, c.restored);
    }
}
