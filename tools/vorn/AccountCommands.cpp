// SPDX-License-Identifier: MIT
// account: the user-account requests (VornUserAccountRequest).
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_ACCOUNT

#include "ExitStatus.h"
#include "InterfaceNames.h"
#include "ReplyStatus.h"
#include "ServiceRequestArgs.h"

#include <VornNubraHelper.h>

#include <stdexcept>

namespace {

using InterfaceNames::Catalogue;

struct AccountArgs : ServiceRequestArgs {
    std::string region;
};

int runAccount(CommandContext& context, const AccountArgs& args)
{
    Output& out = context.out();
    int status = ExitStatus::Ok;
    ServiceRequestArgs::Maps maps;
    const std::optional<int> value = args.prepare(out, Catalogue::UserAccount, &maps, &status);
    VornNubraHelper* helper = value ? context.helper(&status) : nullptr;
    if (!helper)
        return status;
    QVariantMap reply;
    try {
        helper->VornUserAccountRequest(NubraCommon::VornUserAccountInterface(*value), reply, maps.body, maps.params,
                                       maps.headers, QString::fromStdString(args.region),
                                       QString::fromStdString(args.source));
    } catch (const std::out_of_range& error) {
        return out.fail(NubraCommon::UnknownInterface, QString::fromUtf8(error.what()));
    }
    const int code = ReplyStatus::codeOf(reply);
    out.answer(QStringLiteral("account %1").arg(InterfaceNames::requestName(Catalogue::UserAccount, *value)), code,
               reply);
    return code;
}

} // namespace

void addAccountCommands(CLI::App& app, CommandContext& context)
{
    auto args = std::make_shared<AccountArgs>();
    CLI::App* command = app.add_subcommand(
        "account", "Run a user-account request (VornUserAccountRequest): login, countries, captcha, privacy ...");
    args->addTo(*command, "User-account entry: Captcha, captcha, 6, ... (see 'vorn interfaces')");
    command->add_option("--region", args->region, "Send to this region of the configuration (the extra argument)");
    command->footer("Examples:\n  vorn account Captcha\n  vorn account FactoryPrivacyView --param lang=de\n"
                    "  vorn account UserCodeLogin account=demo@vorn.example\n"
                    "The helper returns the reply map itself; vorn reports Success when its \"status\" is "
                    "\"success\", ResponseFailed otherwise, RequestRejected when the request could not start.");
    command->callback([&context, args] { context.action = [&context, args] { return runAccount(context, *args); }; });
}

#else
void addAccountCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "account", "Run a user-account request (VornUserAccountRequest)");
}
#endif
