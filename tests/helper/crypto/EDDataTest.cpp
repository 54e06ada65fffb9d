// SPDX-License-Identifier: MIT
// The protected-data codec: base64 against RFC 4648 and a plain
// character-search decoder, protected text against OpenSSL's libcrypto, and
// the file helpers on real files.

#include "AESEncryption.h"
#include "eddata.h"
#include "CryptoTestSupport.h"
#include "SearchingBase64.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <unistd.h>

using CryptoTest::randomBytes;

namespace {

const std::string kCodecKey = CryptoTest::fromHex("4F1A77C208935E21B46D0CE839A512F0");
const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string encode(const std::string& bytes)
{
    return EDData::base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<unsigned int>(bytes.size()));
}

// Independent protected text: OpenSSL AES-128-ECB without padding over the
// zero-padded input, then RFC 4648 base64.
std::string opensslProtect(const std::string& plain)
{
    std::string padded = plain;
    padded.resize((plain.size() + 15) / 16 * 16, '\0');
    std::string cipher(padded.size(), '\0');
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    int len = 0;
    EVP_EncryptInit_ex(ctx, EVP_aes_128_ecb(), nullptr, reinterpret_cast<const unsigned char*>(kCodecKey.data()),
                       nullptr);
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    if (!padded.empty())
        EVP_EncryptUpdate(ctx, reinterpret_cast<unsigned char*>(&cipher[0]), &len,
                          reinterpret_cast<const unsigned char*>(padded.data()), static_cast<int>(padded.size()));
    EVP_CIPHER_CTX_free(ctx);
    std::string text(4 * ((cipher.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                                  reinterpret_cast<const unsigned char*>(cipher.data()), static_cast<int>(cipher.size()));
    text.resize(static_cast<std::size_t>(n));
    return text;
}

std::string tempPath(const char* name)
{
    return testing::TempDir() + "vorn-crypto-" + std::to_string(::getpid()) + "-" + name;
}

} // namespace

TEST(Base64, encodesRfc4648Vectors)
{
    // RFC 4648 section 10, plus the examples of the classic "Man".
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},  {"foo", "Zm9v"},      {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"Man", "TWFu"}, {"Ma", "TWE="}, {"M", "TQ=="},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(encode(c.first), c.second);
        EXPECT_EQ(EDData::base64_decode(c.second), c.first);
    }
}

TEST(Base64, encodingMatchesOpenSslForEveryLengthAndByte)
{
    std::mt19937 rng(11);
    for (std::size_t length = 0; length < 300; ++length) {
        const std::string bytes = randomBytes(rng, length);
        std::string expected(4 * ((length + 2) / 3) + 1, '\0');
        expected.resize(static_cast<std::size_t>(
            EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&expected[0]),
                            reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(length))));
        ASSERT_EQ(encode(bytes), expected) << "length " << length;
        ASSERT_EQ(EDData::base64_decode(expected), bytes) << "length " << length;
    }
}

TEST(Base64, decodingStopsAtTheFirstCharacterOutsideTheAlphabet)
{
    const std::pair<std::string, std::string> cases[] = {
        {"TWFu\nTWFu", "Man"},         // line break ends the text
        {"TWFu TWFu", "Man"},          // so does a blank
        {"TW=Fu", "M"},                // and "="
        {"TWFuT", "Man"},              // a lone last character yields nothing
        {"TWF", "Ma"},                 // three characters give two bytes
        {"TW", "M"},                   // two give one
        {std::string("TW\0Fu", 5), "M"}, // a zero byte is outside the alphabet
        {"-_-_", ""},                  // the URL-safe alphabet is not this one
        {"\xc3\xa9TWFu", ""},          // nor are bytes above 127
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(CryptoTest::toHex(c.first));
        EXPECT_EQ(EDData::base64_decode(c.first), c.second);
    }
}

TEST(Base64, tableDecoderMatchesSearchingDecoderOnRandomText)
{
    // Mostly alphabet characters with an occasional stop character, at every
    // position relative to the groups of four.
    std::mt19937 rng(5);
    const std::string stops = std::string("=\n \t-_.\x80\xff") + '\0';
    for (int round = 0; round < 3000; ++round) {
        const std::size_t length = static_cast<std::size_t>(rng() % 80);
        std::string text;
        for (std::size_t i = 0; i < length; ++i) {
            if (rng() % 40 == 0)
                text.push_back(stops[rng() % stops.size()]);
            else
                text.push_back(kAlphabet[rng() % kAlphabet.size()]);
        }
        ASSERT_EQ(EDData::base64_decode(text), VornReference::searchingBase64Decode(text)) << text;
    }
}

TEST(ProtectedText, matchesOpenSslForEveryLength)
{
    std::mt19937 rng(17);
    for (std::size_t length = 0; length <= 100; ++length) {
        const std::string plain = randomBytes(rng, length);
        const std::string text = EDData::global_serialize(plain);
        ASSERT_EQ(text, opensslProtect(plain)) << "length " << length;
        const std::size_t cipherLength = (length + 15) / 16 * 16;
        ASSERT_EQ(text.size(), 4 * ((cipherLength + 2) / 3));
        // Restoring keeps the zero padding.
        std::string expected = plain;
        expected.resize(cipherLength, '\0');
        ASSERT_EQ(EDData::global_deserialize(text), expected);
        ASSERT_EQ(EDData::global_deserialize(kCodecKey, text), expected);
    }
}

TEST(ProtectedText, longTextsAcrossChunkBoundariesMatchTheCipherComposition)
{
    // The codec works in chunks; around and across their boundaries its
    // result must stay that of base64 over Crypt and of Decrypt over base64.
    std::mt19937 rng(23);
    for (std::size_t length : {3071u, 3072u, 3073u, 6149u, 20000u}) {
        SCOPED_TRACE(testing::Message() << "length " << length);
        const std::string plain = randomBytes(rng, length);
        const std::string text = EDData::global_serialize(plain);
        ASSERT_EQ(text, opensslProtect(plain));
        for (std::size_t cut : {std::size_t(0), std::size_t(4093), std::size_t(4096), std::size_t(4101),
                                text.size() / 2, text.size() - 1}) {
            if (cut > text.size())
                continue;
            SCOPED_TRACE(testing::Message() << "stop at " << cut);
            std::string broken = text;
            broken.insert(cut, "\n");
            const std::string expected = AESEncryption::Decrypt(AESEncryption::Aes128, AESEncryption::Ecb,
                                                                EDData::base64_decode(broken), kCodecKey, "",
                                                                AESEncryption::Zero);
            ASSERT_EQ(EDData::global_deserialize(broken), expected);
        }
    }
}

TEST(ProtectedText, textCutShortIsRestoredAsFarAsItGoes)
{
    // 20 base64 characters = 15 bytes: one short block, deciphered anyway.
    const std::string text = EDData::global_serialize(std::string(40, 'z'));
    EXPECT_EQ(EDData::global_deserialize(text.substr(0, 20)).size(), 15u);
    // A blank inside the text ends decoding there: first block only.
    const std::string broken = text.substr(0, 24) + " " + text.substr(24);
    EXPECT_EQ(EDData::global_deserialize(broken).substr(0, 16), std::string(16, 'z'));
    EXPECT_EQ(EDData::global_deserialize(broken).size(), 18u);
}

TEST(CodecFiles, writeThenReadGivesTheSameBytes)
{
    const std::string path = tempPath("roundtrip");
    std::mt19937 rng(1);
    std::string content = randomBytes(rng, 70000);
    content[10] = '\0';
    ASSERT_TRUE(EDData::writeFile(path, content));
    EXPECT_EQ(EDData::readFile(path), content);
    // A second write truncates.
    ASSERT_TRUE(EDData::writeFile(path, "short"));
    EXPECT_EQ(EDData::readFile(path), "short");
    std::remove(path.c_str());
}

TEST(CodecFiles, missingFileIsReportedOnStandardOutput)
{
    const std::string path = tempPath("missing/none");
    testing::internal::CaptureStdout();
    const std::string content = EDData::readFile(path);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(content, "");
    EXPECT_EQ(printed, "readfile fail!" + path + "\n");
}

TEST(CodecFiles, unwritablePathReturnsFalseAndCreatesNothing)
{
    const std::string path = tempPath("no-such-dir/out.txt");
    EXPECT_FALSE(EDData::writeFile(path, "data"));
    EXPECT_FALSE(std::ifstream(path).good());
}
