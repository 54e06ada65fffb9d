// disk: the cloud-disk requests (VornCloudDiskRequest), uploads with progress.
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_ACCOUNT
#error "disk commands not written yet"
#else
void addDiskCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "disk", "Run a cloud-disk request (VornCloudDiskRequest)");
}
#endif
