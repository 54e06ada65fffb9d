// SPDX-License-Identifier: MIT
#pragma once

#include "VornNubraHelperExport.h"

#include <string>

/// \file eddata.h
/// The protected-data codec, EDData.

/// The protected-data codec: AES-128 in ECB mode with zero padding under a
/// built-in 16-byte key, then standard base64 ("=" padding, no line
/// breaks). Every std::string here is a byte string. All members are
/// static and reentrant. None throws for any text; the one exception is the
/// two-argument global_deserialize(), which throws std::out_of_range (from
/// the key schedule's bounds-checked read) for a caller's key shorter than
/// 16 bytes.
///
/// Protected text of n input bytes is 4 * ceil(m / 3) characters long, m
/// being n rounded up to a multiple of 16 (an empty input gives an empty
/// text). Restoring does not strip the zero padding: the result is the
/// decrypted blocks as they are, and callers cut at the first zero byte.
class VORN_NUBRA_HELPER_EXPORT EDData {
public:
    /// Nothing to set up; every member is static.
    EDData() = default;

    /// Standard base64 of `length` bytes at `bytes`.
    static std::string base64_encode(const unsigned char* bytes, unsigned int length);
    /// Decodes up to the first "=" or other character outside the alphabet,
    /// silently ignoring the rest; a final lone character yields nothing.
    static std::string base64_decode(const std::string& text);

    /// Protects `plain` under the built-in key; empty for an empty input.
    static std::string global_serialize(std::string plain);
    /// Restores protected text under the built-in key, zero padding kept.
    static std::string global_deserialize(const std::string& text);
    /// Restores with the caller's AES-128 key (first argument, its first 16
    /// bytes). Throws std::out_of_range for a key shorter than 16 bytes.
    static std::string global_deserialize(const std::string& key, const std::string& text);

    /// The whole file, or an empty string after printing "readfile fail!<path>"
    /// on standard output.
    static std::string readFile(std::string path);
    /// Truncates or creates the file and writes `content`; true when it
    /// could be opened.
    static bool writeFile(std::string path, std::string content);
};
