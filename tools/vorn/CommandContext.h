// SPDX-License-Identifier: MIT
#pragma once

#include "Output.h"

#include <QString>

#include <functional>
#include <memory>
#include <string>

namespace CLI {
class App;
}
class VornNubraHelper;

// What every command shares: the global options, the output, and the one
// helper of the process (created only once the configuration was found).
class CommandContext {
public:
    struct Options {
        std::string configFile;
        bool json = false;
        bool verbose = false;
    };

    Options options;
    // Set by the subcommand that was chosen; run after parsing.
    std::function<int()> action;

    Output& out();

    // Locates the client configuration, creates the helper and checks that
    // the cloud client accepted the configuration. On failure it reports
    // why, sets *exitStatus and returns null.
    VornNubraHelper* helper(int* exitStatus);

    // The user token to send: the one given (--token or VORN_TOKEN), else
    // the one `vorn login` stored, else empty.
    QString userToken(const std::string& given) const;

    // The configuration file in use (after helper()).
    QString configPath() const { return m_configPath; }
    QString configOrigin() const { return m_configOrigin; }

private:
    std::unique_ptr<Output> m_out;
    QString m_configPath;
    QString m_configOrigin;
};

// One function per command group; each adds its subcommands to app and
// stores its action in the context when chosen.
void addCatalogueCommands(CLI::App& app, CommandContext& context);
void addInfoCommands(CLI::App& app, CommandContext& context);
void addAccountCommands(CLI::App& app, CommandContext& context);
void addDiskCommands(CLI::App& app, CommandContext& context);
void addSubscribeCommands(CLI::App& app, CommandContext& context);
void addUpgradeCommands(CLI::App& app, CommandContext& context);
void addProtectCommands(CLI::App& app, CommandContext& context);
void addDemoCommand(CLI::App& app, CommandContext& context);
void addLoginCommands(CLI::App& app, CommandContext& context);
// Added last: they read the whole command tree.
void addHelpCommands(CLI::App& app, CommandContext& context);

// Registers a command whose helper calls are not part of this build: it
// exists (so --help lists it and the name is not "unexpected"), and says so
// when run.
void addUnavailableCommand(CLI::App& app, CommandContext& context, const std::string& name,
                           const std::string& description);
