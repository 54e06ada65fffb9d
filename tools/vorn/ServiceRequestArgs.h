// SPDX-License-Identifier: MIT
#pragma once

#include "InterfaceNames.h"

#include <QVariantMap>

#include <optional>

#include <string>
#include <vector>

class Output;
namespace CLI {
class App;
}

// The arguments shared by the account and disk commands: an interface name,
// body fields, parameters, headers and the source string, plus the user
// token (sent as the X-Auth-Token header; these calls add none themselves).
struct ServiceRequestArgs {
    std::string interface;
    std::vector<std::string> body;
    std::vector<std::string> params;
    std::vector<std::string> headers;
    std::string source = "vorn";
    std::string token;

    // Adds the options to a subcommand.
    void addTo(CLI::App& command, const std::string& catalogueHelp);

    struct Maps {
        QVariantMap body;
        QVariantMap params;
        QVariantMap headers;
    };
    // Parses the fields; on a bad one reports it and returns false.
    bool parse(Output& out, Maps* maps, int* exitStatus) const;
    // Parses the fields and looks the interface up among the entries listed
    // in the catalogue (the helper's checked look-up throws for others);
    // reports a failure, sets *exitStatus and returns nothing.
    std::optional<int> prepare(Output& out, InterfaceNames::Catalogue catalogue, Maps* maps, int* exitStatus) const;
};
