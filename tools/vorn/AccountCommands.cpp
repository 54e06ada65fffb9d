// account: the user-account requests (VornUserAccountRequest).
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_ACCOUNT
#error "account commands not written yet"
#else
void addAccountCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "account", "Run a user-account request (VornUserAccountRequest)");
}
#endif
