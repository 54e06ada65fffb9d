// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

// The three request catalogues by name, so that users can write
// "GetUserProfile", "getUserProfile" or "1" for the same entry.
namespace InterfaceNames {

enum class Catalogue { General, UserAccount, CloudDisk };

struct Entry {
    const char* enumName;    // NubraCommon enumerator, e.g. "GetUserProfile"
    const char* requestName; // the cloud client's request name, e.g. "getUserProfile"
    int value;               // the enumerator's value
};

const std::vector<Entry>& entries(Catalogue catalogue);

// Resolves an enumerator name or request name (both case-insensitive) or a
// decimal value. A value missing from the table resolves only when
// allowUnlisted is set (the general catalogue answers such values itself with
// UnknownInterface; the other two must never see them).
std::optional<int> resolve(Catalogue catalogue, const QString& text, bool allowUnlisted);

// "GetUserProfile (getUserProfile)", or "#7" for an unlisted value.
QString describe(Catalogue catalogue, int value);
// The request name of a value, or "#7" when unlisted.
QString requestName(Catalogue catalogue, int value);

// "FetchCountries, GetUserProfile, ..." for error messages.
QString knownNames(Catalogue catalogue);
// Enumerator and request names of the catalogue, for suggestions and
// completion.
QStringList allNames(Catalogue catalogue);

QString catalogueName(Catalogue catalogue);

// The message for a name the catalogue does not know: the closest names when
// some are close ("did you mean"), else every name.
QString unknownMessage(Catalogue catalogue, const QString& name);

} // namespace InterfaceNames
