// SPDX-License-Identifier: MIT
#include "CommandTree.h"

#include "Suggestions.h"

#include <CLI/CLI.hpp>

namespace CommandTree {

std::vector<const CLI::App*> subcommands(const CLI::App& app)
{
    return app.get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
}

std::vector<const CLI::Option*> namedOptions(const CLI::App& app)
{
    return app.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

std::vector<const CLI::Option*> positionals(const CLI::App& app)
{
    return app.get_options([](const CLI::Option* option) { return !option->nonpositional(); });
}

QString unknownCommand(const CLI::App& root, const std::vector<std::string>& args)
{
    const CLI::App* current = &root;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& word = args[i];
        if (word == "--")
            return QString();
        if (word.size() > 1 && word[0] == '-') {
            // An option that takes a value swallows the next word.
            const std::string name = word.substr(0, word.find('='));
            const CLI::Option* option = current->get_option_no_throw(name);
            for (const CLI::App* parent = current->get_parent(); !option && parent; parent = parent->get_parent())
                option = parent->get_option_no_throw(name);
            if (option && option->get_items_expected_max() > 0 && word.find('=') == std::string::npos)
                ++i;
            continue;
        }
        const auto named = current->get_subcommands([&word](const CLI::App* sub) { return sub->check_name(word); });
        if (!named.empty()) {
            current = named.front();
            continue;
        }
        // A word that is no command where only commands fit.
        const auto subs = subcommands(*current);
        if (subs.empty() || !positionals(*current).empty())
            return QString();
        QStringList names;
        for (const CLI::App* sub : subs)
            names << QString::fromStdString(sub->get_name());
        const QString prefix = current == &root ? QString() : QString::fromStdString(current->get_name()) + QLatin1Char(' ');
        return QStringLiteral("unknown command '%1%2'%3; 'vorn %4--help' lists the commands")
            .arg(prefix, QString::fromStdString(word), Suggestions::didYouMean(QString::fromStdString(word), names),
                 prefix);
    }
    return QString();
}

} // namespace CommandTree
