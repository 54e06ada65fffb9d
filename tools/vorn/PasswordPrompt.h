// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <cstdio>

// Reads a password without showing it: the prompt goes to the controlling
// terminal and echo is off while the user types. Ctrl-C or a termination
// signal during the prompt restores the terminal before the process ends.
namespace PasswordPrompt {

// Asks on the terminal when standard input is one; false (with *error)
// when it is not or reading failed. An empty line is a valid (empty) answer.
bool ask(const QString& prompt, QString* password, QString* error);

// The first line of standard input (for --password-stdin), without its line
// end; false (with *error) when standard input is empty.
bool readLine(FILE* input, QString* password, QString* error);

} // namespace PasswordPrompt
