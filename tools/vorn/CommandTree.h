// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}

// Reading vorn's own command tree (the CLI11 definitions that also print
// --help), so that suggestions, shell completion and the man page can never
// disagree with it.
namespace CommandTree {

// Every subcommand of app, hidden ones (no group) left out.
std::vector<const CLI::App*> subcommands(const CLI::App& app);
// Options with a name (not positionals), help flags included.
std::vector<const CLI::Option*> namedOptions(const CLI::App& app);
// Positional arguments, in order.
std::vector<const CLI::Option*> positionals(const CLI::App& app);

// For a command line that failed to parse: when a word where a command
// belongs names none, "unknown command 'lgoin' (did you mean 'login'?)";
// empty otherwise. args excludes the program name.
QString unknownCommand(const CLI::App& root, const std::vector<std::string>& args);

} // namespace CommandTree
