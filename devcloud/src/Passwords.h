// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace devcloud {

// Salted password hashes (PBKDF2-HMAC-SHA256 through OpenSSL).
QByteArray newSalt();
QByteArray hashPassword(const QString& password, const QByteArray& salt);
// Compares in constant time.
bool passwordMatches(const QString& password, const QByteArray& salt, const QByteArray& hash);
// A random URL-safe token of 32 bytes of entropy.
QString newToken();
// What the store keeps of a token: its SHA-256 in hex. A token is random,
// so a plain hash is enough to keep it from whoever reads the database.
QString tokenHash(const QString& token);

} // namespace devcloud
