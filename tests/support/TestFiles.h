// SPDX-License-Identifier: MIT
#pragma once

// Real files for tests and benchmarks: made with given, patterned or random
// content, and read back as digests or JSON.

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace VornTest {

// Writes content to path (replacing it); false if it could not.
bool writeFile(const QString& path, const QByteArray& content);

// size random bytes (nothing can compress them), written 1 MiB at a time.
bool writeRandomFile(const QString& path, qint64 size);

// size bytes of a pattern derived from seed; unique content (a fresh UUID at
// the start of every 64 KiB) unless unique is false, so that the cloud disk
// never skips it as already stored.
bool writePatternFile(const QString& path, qint64 size, char seed, bool unique = true);

// Lower-case hex SHA-256 of the file, empty if it cannot be read.
QString sha256OfFile(const QString& path);

// The JSON object stored in a file, empty if there is none.
QJsonObject readJsonObject(const QString& path);

} // namespace VornTest
