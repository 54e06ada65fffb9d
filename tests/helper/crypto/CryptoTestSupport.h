// SPDX-License-Identifier: MIT
#pragma once

// Small helpers shared by the cipher and codec tests.

#include "aes/AesImplementation.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace CryptoTest {

inline std::string fromHex(const std::string& hex)
{
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

inline std::string toHex(const std::string& bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) {
        out.push_back(digits[c >> 4]);
        out.push_back(digits[c & 15]);
    }
    return out;
}

inline std::string randomBytes(std::mt19937& rng, std::size_t n)
{
    std::uniform_int_distribution<int> byte(0, 255);
    std::string out(n, '\0');
    for (auto& c : out)
        c = static_cast<char>(byte(rng));
    return out;
}

inline const std::vector<VornAes::Implementation>& allImplementations()
{
    static const std::vector<VornAes::Implementation> all = {VornAes::Implementation::ConstantTime,
                                                             VornAes::Implementation::AesNi};
    return all;
}

// Test-name suffix of a parameterised test over implementations.
inline std::string implementationName(const ::testing::TestParamInfo<VornAes::Implementation>& param)
{
    return param.param == VornAes::Implementation::AesNi ? "AesNi" : "ConstantTime";
}

inline std::size_t keyLength(AESEncryption::Aes level)
{
    return level == AESEncryption::Aes192 ? 24 : level == AESEncryption::Aes256 ? 32 : 16;
}

} // namespace CryptoTest
