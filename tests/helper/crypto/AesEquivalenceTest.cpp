// SPDX-License-Identifier: MIT
// Every fast implementation gives the same bytes, and fails the same way, as
// the table-based reference (the object interface) on random inputs of every
// length from 0 to 100 and some long ones, every mode, key size and padding.

#include "AESEncryption.h"
#include "CryptoTestSupport.h"

#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>

using CryptoTest::randomBytes;

namespace {

const AESEncryption::Aes kLevels[] = {AESEncryption::Aes128, AESEncryption::Aes192, AESEncryption::Aes256};
const AESEncryption::Mode kModes[] = {AESEncryption::Ecb, AESEncryption::Cbc, AESEncryption::Cfb,
                                      AESEncryption::Ofb};
const AESEncryption::Padding kPaddings[] = {AESEncryption::Zero, AESEncryption::Pkcs7, AESEncryption::Iso};

class AesEquivalence : public ::testing::TestWithParam<VornAes::Implementation> {
protected:
    void SetUp() override
    {
        if (!VornAes::isAvailable(GetParam()))
            GTEST_SKIP() << VornAes::nameOf(GetParam()) << " unavailable on this machine";
    }
};

} // namespace

TEST_P(AesEquivalence, encryptionAndDecryptionMatchReferenceForEveryLength)
{
    // Every length up to 100, then messages long enough for every batch size
    // of the implementations (8 lanes, 4 blocks, 64-block CFB batches) and
    // their remainders.
    std::vector<std::size_t> kLengths(101);
    std::iota(kLengths.begin(), kLengths.end(), 0);
    kLengths.insert(kLengths.end(), {1023, 1024, 1040, 4097});
    std::mt19937 rng(20240601);
    for (auto level : kLevels)
        for (auto mode : kModes)
            for (auto padding : kPaddings)
                for (std::size_t length : kLengths) {
                    SCOPED_TRACE(testing::Message() << "level " << level << " mode " << mode << " padding "
                                                    << padding << " length " << length);
                    const std::string key = randomBytes(rng, CryptoTest::keyLength(level));
                    const std::string iv = randomBytes(rng, 16);
                    const std::string text = randomBytes(rng, length);
                    AESEncryption reference(level, mode, padding);

                    const std::string expected = reference.encode(text, key, iv);
                    ASSERT_EQ(VornAes::crypt(GetParam(), level, mode, text, key, iv, padding), expected);
                    // Any length, not only whole blocks: a short last block too.
                    ASSERT_EQ(VornAes::decrypt(GetParam(), level, mode, text, key, iv), reference.decode(text, key, iv));
                    ASSERT_EQ(VornAes::decrypt(GetParam(), level, mode, expected, key, iv),
                              reference.decode(expected, key, iv));
                }
}

TEST_P(AesEquivalence, everyModeRoundTripsThroughPaddingRemoval)
{
    std::mt19937 rng(7);
    for (auto level : kLevels)
        for (auto mode : kModes)
            for (std::size_t length = 0; length <= 100; length += 3) {
                SCOPED_TRACE(testing::Message() << "level " << level << " mode " << mode << " length " << length);
                const std::string key = randomBytes(rng, CryptoTest::keyLength(level));
                const std::string iv = randomBytes(rng, 16);
                const std::string text = randomBytes(rng, length);
                const std::string sealed =
                    VornAes::crypt(GetParam(), level, mode, text, key, iv, AESEncryption::Pkcs7);
                ASSERT_EQ(sealed.size() % 16, 0u);
                ASSERT_GT(sealed.size(), text.size());
                EXPECT_EQ(AESEncryption::RemovePadding(VornAes::decrypt(GetParam(), level, mode, sealed, key, iv),
                                                       AESEncryption::Pkcs7),
                          text);
            }
}

TEST_P(AesEquivalence, failuresMatchReference)
{
    const std::string text(40, 'x');
    for (auto level : kLevels) {
        const std::size_t need = CryptoTest::keyLength(level);
        struct Case {
            const char* what;
            AESEncryption::Mode mode;
            std::size_t keyLength;
            std::size_t ivLength;
        };
        const Case cases[] = {
            {"iv empty", AESEncryption::Cbc, need, 0},   {"iv 15 bytes", AESEncryption::Cbc, need, 15},
            {"iv 17 bytes", AESEncryption::Cfb, need, 17}, {"iv 15 bytes", AESEncryption::Ofb, need, 15},
            {"iv ignored in Ecb", AESEncryption::Ecb, need, 3},
            {"unknown mode", static_cast<AESEncryption::Mode>(7), need, 16},
            {"key with surplus", AESEncryption::Cbc, need + 5, 16},
        };
        for (const Case& c : cases) {
            SCOPED_TRACE(testing::Message() << c.what << " level " << level);
            const std::string key(c.keyLength, 'k');
            const std::string iv(c.ivLength, 'i');
            AESEncryption reference(level, c.mode, AESEncryption::Pkcs7);
            EXPECT_EQ(VornAes::crypt(GetParam(), level, c.mode, text, key, iv, AESEncryption::Pkcs7),
                      reference.encode(text, key, iv));
            EXPECT_EQ(VornAes::decrypt(GetParam(), level, c.mode, text, key, iv), reference.decode(text, key, iv));
        }
        // A short key fails in the key schedule, before the iv is looked at,
        // with the standard library's own message of the failing at() (which
        // names the index read and the key's length).
        const auto outOfRangeText = [](const auto& call) {
            try {
                call();
            } catch (const std::out_of_range& e) {
                return std::string(e.what());
            }
            return std::string("no std::out_of_range");
        };
        for (std::size_t shortLength : {std::size_t(0), need - 5, need - 3, need - 1}) {
            SCOPED_TRACE(testing::Message() << "short key of " << shortLength << " level " << level);
            const std::string key(shortLength, 'k');
            AESEncryption reference(level, AESEncryption::Cbc, AESEncryption::Zero);
            const std::string expected = outOfRangeText([&] { reference.encode(text, key, ""); });
            EXPECT_NE(expected.find("basic_string::at"), std::string::npos) << expected;
            EXPECT_EQ(outOfRangeText([&] {
                          VornAes::crypt(GetParam(), level, AESEncryption::Cbc, text, key, "", AESEncryption::Zero);
                      }),
                      expected);
            EXPECT_EQ(outOfRangeText([&] { VornAes::decrypt(GetParam(), level, AESEncryption::Cbc, text, key, ""); }),
                      expected);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Every, AesEquivalence, ::testing::ValuesIn(CryptoTest::allImplementations()),
                         CryptoTest::implementationName);

TEST(AesKeySchedule, matchesReferenceIncludingSurplusKeyBytes)
{
    std::mt19937 rng(3);
    for (auto level : kLevels)
        for (std::size_t extra : {0u, 1u, 7u, 16u}) {
            SCOPED_TRACE(testing::Message() << "level " << level << " extra " << extra);
            const std::string key = randomBytes(rng, CryptoTest::keyLength(level) + extra);
            AESEncryption reference(level, AESEncryption::Ecb, AESEncryption::Iso);
            EXPECT_EQ(AESEncryption::ExpandKey(level, AESEncryption::Ecb, key), reference.expandKey(key));
        }
}

TEST(AesKeySchedule, constantTimeSubWordIsTheSBoxOnEveryByte)
{
    // Known points of the S-box (FIPS-197 Figure 7), then every byte value
    // through the key schedule against the reference.
    EXPECT_EQ(VornAes::subWordConstantTime(0x00000000u), 0x63636363u);
    EXPECT_EQ(VornAes::subWordConstantTime(0x00000053u), 0x636363EDu);
    EXPECT_EQ(VornAes::subWordConstantTime(0xFF000001u), 0x1663637Cu);
    for (int b = 0; b < 256; ++b) {
        const std::string key(16, static_cast<char>(b));
        AESEncryption reference(AESEncryption::Aes128, AESEncryption::Ecb, AESEncryption::Zero);
        ASSERT_EQ(AESEncryption::ExpandKey(AESEncryption::Aes128, AESEncryption::Ecb, key), reference.expandKey(key))
            << "key byte " << b;
    }
}

TEST(AesLevels, unknownLevelIsAes128AndUnknownPaddingPadsWithZeros)
{
    const std::string key(16, '\x11');
    const std::string text(21, 'a');
    EXPECT_EQ(AESEncryption::Crypt(static_cast<AESEncryption::Aes>(9), AESEncryption::Ecb, text, key, "",
                                   AESEncryption::Zero),
              AESEncryption::Crypt(AESEncryption::Aes128, AESEncryption::Ecb, text, key, "", AESEncryption::Zero));
    EXPECT_EQ(AESEncryption::Crypt(AESEncryption::Aes128, AESEncryption::Ecb, text, key, "",
                                   static_cast<AESEncryption::Padding>(5)),
              AESEncryption::Crypt(AESEncryption::Aes128, AESEncryption::Ecb, text, key, "", AESEncryption::Zero));
}
