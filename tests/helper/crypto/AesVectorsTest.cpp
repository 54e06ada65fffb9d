// SPDX-License-Identifier: MIT
// The published example vectors over every implementation: the table-based
// reference (the object interface) and each fast one. An implementation this
// machine cannot run is reported as unavailable, never passed silently.

#include "AESEncryption.h"
#include "CryptoTestSupport.h"

#include <gtest/gtest.h>

using CryptoTest::fromHex;
using CryptoTest::toHex;

namespace {

struct Vector {
    const char* source;
    AESEncryption::Aes level;
    const char* key;
    const char* plain;
    const char* cipher;
};

const Vector kVectors[] = {
    {"FIPS-197 Appendix C.1 (AES-128)", AESEncryption::Aes128, "000102030405060708090a0b0c0d0e0f",
     "00112233445566778899aabbccddeeff", "69c4e0d86a7b0430d8cdb78070b4c55a"},
    {"FIPS-197 Appendix C.2 (AES-192)", AESEncryption::Aes192, "000102030405060708090a0b0c0d0e0f1011121314151617",
     "00112233445566778899aabbccddeeff", "dda97ca4864cdfe06eaf70a0ec0d7191"},
    {"FIPS-197 Appendix C.3 (AES-256)", AESEncryption::Aes256,
     "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f", "00112233445566778899aabbccddeeff",
     "8ea2b7ca516745bfeafc49904b496089"},
    {"FIPS-197 Appendix B (AES-128)", AESEncryption::Aes128, "2b7e151628aed2a6abf7158809cf4f3c",
     "3243f6a8885a308d313198a2e0370734", "3925841d02dc09fbdc118597196a0b32"},
};

// Last word of each expanded key, FIPS-197 Appendix A.1 to A.3.
struct ScheduleVector {
    AESEncryption::Aes level;
    const char* key;
    const char* lastWord;
};

const ScheduleVector kSchedules[] = {
    {AESEncryption::Aes128, "2b7e151628aed2a6abf7158809cf4f3c", "b6630ca6"},
    {AESEncryption::Aes192, "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b", "01002202"},
    {AESEncryption::Aes256, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4", "706c631e"},
};

} // namespace

// The entry points that must all give the published bytes: the table-based
// reference (the object interface), the static calls, and each fast
// implementation.
class AesImplementationVectors : public ::testing::TestWithParam<VornAes::Implementation> {};

TEST_P(AesImplementationVectors, matchesPublishedVectors)
{
    const auto implementation = GetParam();
    if (!VornAes::isAvailable(implementation))
        GTEST_SKIP() << VornAes::nameOf(implementation) << " unavailable on this machine";
    for (const Vector& v : kVectors) {
        SCOPED_TRACE(v.source);
        const std::string key = fromHex(v.key), plain = fromHex(v.plain), cipher = fromHex(v.cipher);
        EXPECT_EQ(toHex(VornAes::crypt(implementation, v.level, AESEncryption::Ecb, plain, key, "",
                                       AESEncryption::Zero)),
                  v.cipher);
        EXPECT_EQ(toHex(VornAes::decrypt(implementation, v.level, AESEncryption::Ecb, cipher, key, "")), v.plain);
    }
}

INSTANTIATE_TEST_SUITE_P(Every, AesImplementationVectors,
                         ::testing::ValuesIn(CryptoTest::allImplementations()),
                         CryptoTest::implementationName);

TEST(AesVectors, referenceAndStaticEntryPointsMatchPublishedVectors)
{
    for (const Vector& v : kVectors) {
        SCOPED_TRACE(v.source);
        const std::string key = fromHex(v.key), plain = fromHex(v.plain), cipher = fromHex(v.cipher);
        AESEncryption aes(v.level, AESEncryption::Ecb, AESEncryption::Zero);
        EXPECT_EQ(toHex(aes.encode(plain, key, "")), v.cipher);
        EXPECT_EQ(toHex(aes.decode(cipher, key, "")), v.plain);
        EXPECT_EQ(toHex(AESEncryption::Crypt(v.level, AESEncryption::Ecb, plain, key, "", AESEncryption::Zero)),
                  v.cipher);
        EXPECT_EQ(toHex(AESEncryption::Decrypt(v.level, AESEncryption::Ecb, cipher, key, "", AESEncryption::Zero)),
                  v.plain);
    }
}

TEST(AesVectors, keyScheduleEndsWithPublishedWord)
{
    for (const ScheduleVector& v : kSchedules) {
        SCOPED_TRACE(v.key);
        const std::size_t expectedSize = v.level == AESEncryption::Aes128 ? 176 : v.level == AESEncryption::Aes192 ? 208 : 240;
        AESEncryption aes(v.level, AESEncryption::Ecb, AESEncryption::Zero);
        const std::string reference = aes.expandKey(fromHex(v.key));
        const std::string fast = AESEncryption::ExpandKey(v.level, AESEncryption::Ecb, fromHex(v.key));
        ASSERT_EQ(reference.size(), expectedSize);
        EXPECT_EQ(toHex(reference.substr(expectedSize - 4)), v.lastWord);
        EXPECT_EQ(fast, reference);
    }
}

TEST(AesVectors, selectedImplementationIsTheFastestAvailable)
{
    const auto chosen = VornAes::fastestAvailable();
    EXPECT_TRUE(VornAes::isAvailable(chosen));
    if (VornAes::isAvailable(VornAes::Implementation::AesNi)) {
        EXPECT_EQ(chosen, VornAes::Implementation::AesNi);
    }
    std::cout << "AES implementation in use: " << VornAes::nameOf(chosen) << std::endl;
}
