// SPDX-License-Identifier: MIT
#include "CommandContext.h"

#include "ConfigDiscovery.h"
#include "ExitStatus.h"
#include "TokenStore.h"

#include <VornNubraHelper.h>

#include <CLI/CLI.hpp>

Output& CommandContext::out()
{
    if (!m_out)
        m_out = std::make_unique<Output>(options.json ? Output::Format::Json : Output::Format::Human);
    return *m_out;
}

QString CommandContext::userToken(const std::string& given) const
{
    if (!given.empty())
        return QString::fromStdString(given);
    return TokenStore::load().token;
}

VornNubraHelper* CommandContext::helper(int* exitStatus)
{
    const ConfigDiscovery::Located located = ConfigDiscovery::locate(QString::fromStdString(options.configFile));
    if (!located.ok()) {
        *exitStatus = out().fail(ExitStatus::NoCloud, located.error);
        return nullptr;
    }
    m_configPath = located.path;
    m_configOrigin = located.origin;

    VornNubraHelper* helper = VornNubraHelper::getInstance();
    if (!helper) {
        *exitStatus = out().fail(ExitStatus::Software, QStringLiteral("the helper is gone (process exiting)"));
        return nullptr;
    }
    // The client reads its configuration while the helper is built; an empty
    // configuration afterwards means it refused the file.
    if (helper->configData().isEmpty()) {
        *exitStatus = out().fail(ExitStatus::NoCloud,
                                 QStringLiteral("no cloud configured: the cloud client rejected %1 (from %2); "
                                                "run with --verbose to see why")
                                     .arg(located.path, located.origin));
        return nullptr;
    }
    return helper;
}

void addUnavailableCommand(CLI::App& app, CommandContext& context, const std::string& name,
                           const std::string& description)
{
    CLI::App* command = app.add_subcommand(name, description + " [not available in this build]");
    // Take any arguments: the command only says that it is missing.
    auto ignored = std::make_shared<std::vector<std::string>>();
    command->add_option("arguments", *ignored, "ignored");
    command->allow_extras();
    command->callback([&context, name, ignored] {
        context.action = [&context, name] {
            return context.out().fail(ExitStatus::NotBuilt,
                                      QStringLiteral("'%1' is not available in this build: the helper calls it "
                                                     "needs are not built yet")
                                          .arg(QString::fromStdString(name)));
        };
    });
}
