// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariant>

// The user token `vorn login` keeps for later commands, in
// $XDG_CONFIG_HOME/vorn/token (~/.config/vorn/token): a JSON object readable
// only by the user (file 0600 in a folder 0700), replaced atomically so that
// a crash never leaves half a token.
namespace TokenStore {

struct Stored {
    QString token;
    QString account;
    QString cloud;    // the base URL signed in to
    QString savedAt;  // ISO 8601, UTC

    bool ok() const { return !token.isEmpty(); }
};

QString path();

// Nothing stored (or an unreadable file) gives an empty Stored; *error says
// why when a file exists but cannot be used.
Stored load(QString* error = nullptr);
bool save(const Stored& stored, QString* error);
// Removes the file; *existed tells whether there was one.
bool remove(bool* existed, QString* error);

// What vorn shows instead of a secret: "(set, 32 characters)".
QString masked(const QString& secret);
// A copy of a configuration map with every password, token, secret or key
// value masked, at any depth.
QVariant maskSecrets(const QVariant& value);

} // namespace TokenStore
