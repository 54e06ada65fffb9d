// SPDX-License-Identifier: MIT
// AESEncryption::RemovePadding on any text under any padding value: never
// crashes; the only exception is std::out_of_range, and a result is always a
// prefix of the text.
//
// Input: first byte = padding value (mod 4, so the unknown value 3 is
// covered too), the rest = the text.

#include "AESEncryption.h"
#include "FuzzCheck.h"

#include <cstdint>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const auto padding = static_cast<AESEncryption::Padding>(data[0] % 4);
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    try {
        const std::string stripped = AESEncryption::RemovePadding(text, padding);
        VORN_FUZZ_CHECK(stripped.size() <= text.size());
        VORN_FUZZ_CHECK(text.compare(0, stripped.size(), stripped) == 0);
        if (padding == AESEncryption::Zero)
            VORN_FUZZ_CHECK(stripped.empty() == text.empty());
    } catch (const std::out_of_range&) {
        VORN_FUZZ_CHECK(!text.empty());
        VORN_FUZZ_CHECK(padding != 3);
    }
    return 0;
}
