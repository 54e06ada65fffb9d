// SPDX-License-Identifier: MIT
// login and logout: sign in once (post UserLogin), keep the user token for
// later commands, and forget it again.
#include "CommandContext.h"
#include "ExitStatus.h"
#include "PasswordPrompt.h"
#include "TokenStore.h"

#include <VornNubraHelper.h>

#include <CLI/CLI.hpp>

#include <cstdio>

namespace {

struct LoginArgs {
    std::string account;
    std::string password;
    bool passwordStdin = false;
    bool noStore = false;
    bool printToken = false;
    int timeoutMs = 15000;
};

// The password from, in this order: --password-stdin, the command line (kept
// for old scripts, with a warning), VORN_PASSWORD, the terminal.
bool obtainPassword(CommandContext& context, const LoginArgs& args, QString* password, int* status)
{
    QString error;
    if (args.passwordStdin) {
        if (PasswordPrompt::readLine(stdin, password, &error))
            return true;
    } else if (!args.password.empty()) {
        *password = QString::fromStdString(args.password);
        if (!qEnvironmentVariableIsSet("VORN_PASSWORD"))
            std::fputs("vorn: warning: a password on the command line shows in 'ps' and the shell's history; "
                       "let vorn ask for it, or use --password-stdin\n",
                       stderr);
        return true;
    } else if (PasswordPrompt::ask(QStringLiteral("Password for %1: ").arg(QString::fromStdString(args.account)),
                                   password, &error)) {
        return true;
    }
    *status = context.out().fail(ExitStatus::Usage, error);
    return false;
}

int runLogin(CommandContext& context, const LoginArgs& args)
{
    Output& out = context.out();
    int status = ExitStatus::Ok;
    QString password;
    if (!obtainPassword(context, args, &password, &status))
        return status;
    VornNubraHelper* helper = context.helper(&status);
    if (!helper)
        return status;
    QVariantMap result;
    const auto code = helper->post(NubraCommon::Interface::UserLogin,
                                   {{QStringLiteral("account"), QString::fromStdString(args.account)},
                                    {QStringLiteral("password"), password}},
                                   result, {}, args.timeoutMs);
    const QString token = result.value(QStringLiteral("token")).toString();
    QVariantMap shown = result;
    if (shown.contains(QStringLiteral("token")) && !args.printToken)
        shown.insert(QStringLiteral("token"), TokenStore::masked(token));
    QVariantMap extra;
    if (code == NubraCommon::Success && !args.noStore) {
        QString error;
        const TokenStore::Stored stored{token, QString::fromStdString(args.account),
                                        helper->configData().value(QStringLiteral("baseUrl")).toString(), {}};
        if (!TokenStore::save(stored, &error))
            return out.fail(ExitStatus::CantCreate, QStringLiteral("signed in, but %1").arg(error));
        extra.insert(QStringLiteral("tokenFile"), TokenStore::path());
    }
    out.answer(QStringLiteral("post userLogin"), int(code), shown, extra);
    if (code == NubraCommon::Success && !args.noStore)
        out.note(QStringLiteral("Later commands send this token; 'vorn logout' removes it."));
    return int(code);
}

int runLogout(CommandContext& context)
{
    bool existed = false;
    QString error;
    if (!TokenStore::remove(&existed, &error))
        return context.out().fail(ExitStatus::CantCreate, error);
    context.out().answer(QStringLiteral("logout"), 0,
                         QVariantMap{{QStringLiteral("tokenFile"), TokenStore::path()},
                                     {QStringLiteral("removed"), existed}});
    if (!existed)
        context.out().note(QStringLiteral("(no token was stored)"));
    return ExitStatus::Ok;
}

} // namespace

void addLoginCommands(CLI::App& app, CommandContext& context)
{
    auto args = std::make_shared<LoginArgs>();
    CLI::App* login =
        app.add_subcommand("login", "Sign in (post UserLogin) and keep the user token for later commands");
    login->add_option("account", args->account, "Account, e.g. demo@vorn.example")->required();
    login->add_option("password", args->password,
                      "Password (better left out: vorn then asks without echo, or reads --password-stdin)")
        ->envname("VORN_PASSWORD");
    login->add_flag("--password-stdin", args->passwordStdin, "Read the password from the first line of standard input");
    login->add_flag("--no-store", args->noStore, "Do not keep the token (only check the password)");
    login->add_flag("--print-token", args->printToken, "Show the token itself in the answer (it is masked otherwise)");
    login->add_option("-t,--timeout", args->timeoutMs, "Time-out in milliseconds")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    login->footer("Examples:\n  vorn login demo@vorn.example\n"
                  "  pass show vorn | vorn login demo@vorn.example --password-stdin\n"
                  "The token goes to $XDG_CONFIG_HOME/vorn/token (default ~/.config/vorn/token), readable only by "
                  "you; --token or VORN_TOKEN override it for one command.");
    login->callback([&context, args] { context.action = [&context, args] { return runLogin(context, *args); }; });

    app.add_subcommand("logout", "Forget the token 'vorn login' stored")
        ->callback([&context] { context.action = [&context] { return runLogout(context); }; });
}
