// SPDX-License-Identifier: MIT
// completion and help-man: shell completion scripts and the man page, both
// written from the command tree that --help prints.
#include "CommandContext.h"
#include "Completion.h"
#include "ExitStatus.h"
#include "InterfaceNames.h"
#include "ManPage.h"
#include "ResultCodes.h"
#include "TokenStore.h"

#include <CLI/CLI.hpp>

#include <QSaveFile>

#include <cstdio>

namespace {

using InterfaceNames::Catalogue;

QMap<QString, QStringList> completionWords()
{
    const QStringList general = InterfaceNames::allNames(Catalogue::General);
    return {{QStringLiteral("post"), general},
            {QStringLiteral("postv1"), general},
            {QStringLiteral("postv2"), general},
            {QStringLiteral("get"), general},
            {QStringLiteral("account"), InterfaceNames::allNames(Catalogue::UserAccount)},
            {QStringLiteral("disk"), InterfaceNames::allNames(Catalogue::CloudDisk)},
            {QStringLiteral("completion"), {QStringLiteral("bash"), QStringLiteral("zsh")}}};
}

ManPage::Extra manExtra()
{
    ManPage::Extra extra;
    QStringList lines{QStringLiteral(
        "A command that ran a helper call exits with the helper's result code, which its output also names:")};
    for (int code = 0; code <= 12; ++code)
        lines << QStringLiteral("%1 %2: %3.").arg(code).arg(ResultCodes::name(code), ResultCodes::meaning(code));
    lines << QStringLiteral("Commands that answer a question exit 0 for yes and 1 for no: 'upgrade exists' (1: the "
                            "package is not on disk), 'subscribe --count N' (1: fewer messages came).");
    lines << QStringLiteral("vorn's own statuses:");
    for (const ExitStatus::Meaning& meaning : ExitStatus::kMeanings)
        lines << QStringLiteral("%1: %2.").arg(meaning.status).arg(QString::fromLatin1(meaning.text));
    extra.exitStatus = lines.join(QLatin1Char('\n'));
    extra.environment = {
        {QStringLiteral("NUBRA_CONFIG"), QStringLiteral("The client configuration file, unless --config names one.")},
        {QStringLiteral("VORN_TOKEN"), QStringLiteral("User token for one command, instead of the stored one.")},
        {QStringLiteral("VORN_PASSWORD"), QStringLiteral("Password for 'vorn login' (else vorn asks on the terminal).")},
        {QStringLiteral("XDG_CONFIG_HOME"), QStringLiteral("Where the token file lives (default ~/.config).")},
    };
    extra.files = {{QStringLiteral("$XDG_CONFIG_HOME/vorn/token"),
                    QStringLiteral("The user token kept by 'vorn login' (mode 0600 in a folder 0700); "
                                   "'vorn logout' removes it.")}};
    return extra;
}

} // namespace

void addHelpCommands(CLI::App& app, CommandContext& context)
{
    auto shell = std::make_shared<std::string>();
    CLI::App* completion = app.add_subcommand("completion", "Print a shell completion script (bash or zsh)");
    completion->add_option("shell", *shell, "bash or zsh")->required()->check(CLI::IsMember({"bash", "zsh"}));
    completion->footer("Examples:\n  source <(vorn completion bash)\n"
                       "  vorn completion zsh > ~/.zsh/completions/_vorn");
    completion->callback([&app, &context, shell] {
        context.action = [&app, shell] {
            const QString script = *shell == "zsh" ? Completion::zshScript(app, completionWords())
                                                   : Completion::bashScript(app, completionWords());
            std::fputs(script.toUtf8().constData(), stdout);
            return ExitStatus::Ok;
        };
    });

    // Hidden (no group): the build writes the man page with it.
    auto file = std::make_shared<std::string>();
    CLI::App* man = app.add_subcommand("help-man", "Print the manual page (roff)")->group("");
    man->add_option("-o,--output", *file, "Write it to this file instead");
    man->callback([&app, &context, file] {
        context.action = [&app, &context, file] {
            const QByteArray page = ManPage::render(app, QStringLiteral(VORN_VERSION), manExtra()).toUtf8();
            if (file->empty()) {
                std::fputs(page.constData(), stdout);
                return ExitStatus::Ok;
            }
            QSaveFile out(QString::fromStdString(*file));
            if (!out.open(QIODevice::WriteOnly) || out.write(page) != page.size() || !out.commit())
                return context.out().fail(ExitStatus::CantCreate,
                                          QStringLiteral("cannot write %1: %2").arg(out.fileName(), out.errorString()));
            return ExitStatus::Ok;
        };
    });
}
