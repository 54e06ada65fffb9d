// protect and unprotect: the helper's protected-data calls.
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_PROTECT
#error "protect commands not written yet"
#else
void addProtectCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "protect", "Protect a string, JSON file or file");
    addUnavailableCommand(app, context, "unprotect", "Restore protected text");
}
#endif
