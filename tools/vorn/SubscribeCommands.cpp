// subscribe: messages of server topics until a time or count is reached.
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_SUBSCRIBE
#error "subscribe commands not written yet"
#else
void addSubscribeCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "subscribe", "Print the messages of server topics");
}
#endif
