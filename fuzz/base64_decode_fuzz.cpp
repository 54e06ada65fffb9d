// SPDX-License-Identifier: MIT
// EDData::base64_decode on any text: never crashes, and gives the bytes of
// the plain character-by-character decoder (search in the alphabet, stop at
// the first "=" or other character outside it).

#include "FuzzCheck.h"
#include "SearchingBase64.h"
#include "eddata.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string decoded = EDData::base64_decode(text);
    VORN_FUZZ_CHECK(decoded == VornReference::searchingBase64Decode(text));
    // Encoding what was decoded from clean text gives the text back.
    if (decoded.size() % 3 == 0 && text.size() == decoded.size() / 3 * 4)
        VORN_FUZZ_CHECK(EDData::base64_encode(reinterpret_cast<const unsigned char*>(decoded.data()),
                                              static_cast<unsigned>(decoded.size())) == text);
    return 0;
}
