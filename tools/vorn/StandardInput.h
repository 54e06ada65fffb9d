// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

// "-" in place of a file or a text means standard input, as in most tools.
// Standard input can be read once per run: a second "-" is an error rather
// than an empty input.
namespace StandardInput {

bool isDash(const QString& pathOrText);

// The whole content of a file, or of standard input for "-". On failure
// *error says why (the file's name and the system's reason).
bool readFile(const QString& path, QByteArray* content, QString* error);

// A text argument: itself, or standard input for "-" without its final line
// end (so that `echo text | vorn protect -` protects "text").
bool readText(const QString& argument, QString* text, QString* error);

} // namespace StandardInput
