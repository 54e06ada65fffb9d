// upgrade and download: the automatic-upgrade flow and file download.
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_UPGRADE
#error "upgrade commands not written yet"
#else
void addUpgradeCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "upgrade", "Register for upgrades, check, download packages");
    addUnavailableCommand(app, context, "download", "Download a file in the background (downloadFile)");
}
#endif
