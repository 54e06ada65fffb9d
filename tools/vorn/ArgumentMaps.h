// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariantMap>

#include <string>
#include <vector>

// Builds the body, params and header maps of a request from command-line
// fields. Each field is one of
//   key=value     the string "value"
//   key:=json     a JSON value: key:=1001, key:=true, key:='["a","b"]'
//   {"k": ...}    a JSON object whose entries are merged in
//   @file.json    a file holding a JSON object, merged in
// Later fields replace earlier ones with the same key. Strings stay strings
// unless asked otherwise (":="), so a password such as 123456 is never
// turned into a number behind the user's back.
namespace ArgumentMaps {

struct Parsed {
    QVariantMap map;
    QString error; // empty when all fields parsed
    bool fileMissing = false; // the error is an unreadable @file
    bool ok() const { return error.isEmpty(); }
};

Parsed parse(const std::vector<std::string>& fields);

} // namespace ArgumentMaps
