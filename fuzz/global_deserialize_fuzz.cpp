// SPDX-License-Identifier: MIT
// EDData::global_deserialize on any text, with the codec key or a caller's
// key: never crashes, gives exactly Decrypt over base64_decode, and throws
// nothing but the cipher's std::out_of_range for a key shorter than 16 bytes.
//
// Input: first byte selects the form (odd: caller's key) and, for the key
// form, the key length (byte / 2 % 33); the key bytes follow, then the text.

#include "AESEncryption.h"
#include "FuzzCheck.h"
#include "eddata.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace {

const std::string kCodecKey("\x4F\x1A\x77\xC2\x08\x93\x5E\x21\xB4\x6D\x0C\xE8\x39\xA5\x12\xF0", 16);

std::string expected(const std::string& key, const std::string& text)
{
    return AESEncryption::Decrypt(AESEncryption::Aes128, AESEncryption::Ecb, EDData::base64_decode(text), key, "",
                                  AESEncryption::Zero);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);
    if ((data[0] & 1) == 0) {
        const std::string restored = EDData::global_deserialize(input);
        VORN_FUZZ_CHECK(restored == expected(kCodecKey, input));
        VORN_FUZZ_CHECK(restored.size() == EDData::base64_decode(input).size());
        return 0;
    }
    const std::size_t keyLength = std::min<std::size_t>(data[0] / 2 % 33, input.size());
    const std::string key = input.substr(0, keyLength);
    const std::string text = input.substr(keyLength);
    try {
        const std::string restored = EDData::global_deserialize(key, text);
        VORN_FUZZ_CHECK(key.size() >= 16);
        VORN_FUZZ_CHECK(restored == expected(key, text));
    } catch (const std::out_of_range&) {
        VORN_FUZZ_CHECK(key.size() < 16);
    }
    return 0;
}
