// EDData::base64_decode on any text: never crashes, and gives the bytes of
// the plain character-by-character decoder (search in the alphabet, stop at
// the first "=" or other character outside it).

#include "FuzzCheck.h"
#include "eddata.h"

#include <cstdint>
#include <string>

namespace {

std::string searchingDecode(const std::string& text)
{
    static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    unsigned value = 0;
    int count = 0;
    for (char c : text) {
        const auto pos = c == '\0' ? std::string::npos : alphabet.find(c);
        if (pos == std::string::npos)
            break;
        value = value << 6 | static_cast<unsigned>(pos);
        if (++count == 4) {
            out.push_back(static_cast<char>(value >> 16));
            out.push_back(static_cast<char>(value >> 8));
            out.push_back(static_cast<char>(value));
            value = 0;
            count = 0;
        }
    }
    if (count == 2)
        out.push_back(static_cast<char>(value >> 4));
    if (count == 3) {
        out.push_back(static_cast<char>(value >> 10));
        out.push_back(static_cast<char>(value >> 2));
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string decoded = EDData::base64_decode(text);
    VORN_FUZZ_CHECK(decoded == searchingDecode(text));
    // Encoding what was decoded from clean text gives the text back.
    if (decoded.size() % 3 == 0 && text.size() == decoded.size() / 3 * 4)
        VORN_FUZZ_CHECK(EDData::base64_encode(reinterpret_cast<const unsigned char*>(decoded.data()),
                                              static_cast<unsigned>(decoded.size())) == text);
    return 0;
}
