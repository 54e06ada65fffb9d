// SPDX-License-Identifier: MIT
#pragma once

// The plain base64 decoder that the table-based EDData::base64_decode must
// agree with: search every character in the RFC 4648 alphabet, stop at the
// first "=" or other character outside it (a zero byte included), and turn
// a last group of two or three characters into one or two bytes.

#include <string>

namespace VornReference {

inline std::string searchingBase64Decode(const std::string& text)
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

} // namespace VornReference
