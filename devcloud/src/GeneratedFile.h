// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <cstdint>

namespace devcloud {

// Writes size bytes of deterministic pseudo-random content (the same seed
// gives the same bytes on every run) and returns their lower-case hex
// SHA-256, or an empty string with error set.
QString writeGeneratedFile(const QString& path, std::int64_t size, const QString& seed, QString* error);

// SHA-256 of a file on disk (hex), or empty when unreadable.
QString sha256OfFile(const QString& path);

} // namespace devcloud
