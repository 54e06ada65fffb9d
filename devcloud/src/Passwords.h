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

} // namespace devcloud
