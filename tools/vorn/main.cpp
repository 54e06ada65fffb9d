// SPDX-License-Identifier: MIT
// vorn: the Vorn cloud from a terminal or a script, through the helper
// library's public calls; `vorn demo` walks through the whole library
// against a local cloud.

#include "CommandContext.h"
#include "CommandTree.h"
#include "ExitStatus.h"
#include "FailureCause.h"
#include "HelperLog.h"

#include <CLI/CLI.hpp>

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

bool g_verbose = false;

// The helper and the cloud client trace every request through Qt's debug
// stream; vorn speaks for itself, so those lines appear only with --verbose.
void filterMessages(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    // The client's failure records feed the one-line causes; --verbose
    // shows them too.
    if (FailureCause::take(context.category, message) && !g_verbose)
        return;
    if (!g_verbose && type != QtCriticalMsg && type != QtFatalMsg)
        return;
    const char* level = type == QtDebugMsg ? "debug" : type == QtInfoMsg ? "info" : type == QtWarningMsg ? "warning" : "error";
    const char* category = context.category ? context.category : "default";
    std::fprintf(stderr, "[%s %s] %s\n", category, level, message.toLocal8Bit().constData());
}

void configureLogging(bool verbose)
{
    g_verbose = verbose;
    qInstallMessageHandler(filterMessages);
    FailureCause::enable();
    HelperLog::install(verbose);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vorn"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VORN_VERSION));

    CommandContext context;
    CLI::App cli{"vorn talks to the Vorn cloud through the VornNubraHelper library.\n"
                 "Start with 'vorn demo' (a guided tour against a local cloud), or point vorn at a cloud with "
                 "--config FILE and run any request.",
                 "vorn"};
    cli.set_version_flag("--version", VORN_VERSION);
    cli.add_option("-c,--config", context.options.configFile,
                   "Client configuration file (default: $NUBRA_CONFIG, then the file beside the application)");
    cli.add_flag("--json", context.options.json,
                 "Print one JSON object (operation, code, codeName, result) instead of text");
    cli.add_flag("-v,--verbose", context.options.verbose, "Show the helper's and the cloud client's own log lines");
    cli.require_subcommand(1);
    cli.fallthrough(); // global options may also follow the subcommand
    cli.footer("Exit status: the helper's result code (0 = Success, 1..12, see 'vorn codes'); commands that answer "
               "a question (upgrade exists) exit 1 for no; 64 bad arguments, 69 no cloud configured, 78 not in this "
               "build, 130 interrupted.\nShell completion: source <(vorn completion bash). Manual: man vorn.");

    addCatalogueCommands(cli, context);
    addLoginCommands(cli, context);
    addAccountCommands(cli, context);
    addDiskCommands(cli, context);
    addSubscribeCommands(cli, context);
    addUpgradeCommands(cli, context);
    addProtectCommands(cli, context);
    addInfoCommands(cli, context);
    addDemoCommand(cli, context);
    addHelpCommands(cli, context);

    try {
        cli.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // A mistyped command gets a suggestion instead of CLI11's "A
        // subcommand is required" or "arguments were not expected".
        const QString unknown = error.get_exit_code() == 0
            ? QString()
            : CommandTree::unknownCommand(cli, std::vector<std::string>(argv + 1, argv + argc));
        if (!unknown.isEmpty())
            std::fprintf(stderr, "vorn: %s\n", unknown.toUtf8().constData());
        const int printed = unknown.isEmpty() ? cli.exit(error) : error.get_exit_code(); // help, version or the error
        if (error.get_exit_code() == 0)
            return printed;
        // A script that asked for JSON gets its one document even now. The
        // parse failed, so the flag may not have been read: look for it.
        const bool json = context.options.json
            || std::any_of(argv + 1, argv + argc, [](const char* arg) { return std::strcmp(arg, "--json") == 0; });
        if (json)
            Output(Output::Format::Json, stdout, nullptr).document(
                {{QStringLiteral("error"), unknown.isEmpty() ? QString::fromUtf8(error.what()) : unknown},
                 {QStringLiteral("exitStatus"), ExitStatus::Usage}});
        return ExitStatus::Usage;
    }
    configureLogging(context.options.verbose);
    if (!context.action)
        return ExitStatus::Usage;
    return context.action();
}
