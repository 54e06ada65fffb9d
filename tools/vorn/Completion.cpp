// SPDX-License-Identifier: MIT
#include "Completion.h"

#include "CommandTree.h"

#include <CLI/CLI.hpp>

namespace Completion {

namespace {

struct Level {
    QString path;          // "" for vorn itself, "upgrade check" below
    QStringList commands;  // its subcommands
    QStringList words;     // commands, options and extra words
};

void collect(const CLI::App& app, const QString& path, const QMap<QString, QStringList>& extraWords,
             QList<Level>* levels)
{
    Level level{path, {}, {}};
    for (const CLI::App* sub : CommandTree::subcommands(app))
        level.commands << QString::fromStdString(sub->get_name());
    level.words = level.commands;
    for (const CLI::Option* option : CommandTree::namedOptions(app)) {
        for (const std::string& name : option->get_lnames())
            level.words << QStringLiteral("--") + QString::fromStdString(name);
        for (const std::string& name : option->get_snames())
            level.words << QStringLiteral("-") + QString::fromStdString(name);
    }
    level.words << extraWords.value(path);
    levels->append(level);
    for (const CLI::App* sub : CommandTree::subcommands(app)) {
        const QString name = QString::fromStdString(sub->get_name());
        collect(*sub, path.isEmpty() ? name : path + QLatin1Char(' ') + name, extraWords, levels);
    }
}

// One case arm per level: `"upgrade") echo "register check ...";;`
QString caseArms(const QList<Level>& levels, bool commandsOnly)
{
    QString arms;
    for (const Level& level : levels) {
        const QStringList& words = commandsOnly ? level.commands : level.words;
        if (words.isEmpty())
            continue;
        arms += QStringLiteral("        \"%1\") echo \"%2\" ;;\n").arg(level.path, words.join(QLatin1Char(' ')));
    }
    return arms;
}

} // namespace

QString bashScript(const CLI::App& root, const QMap<QString, QStringList>& extraWords)
{
    QList<Level> levels;
    collect(root, QString(), extraWords, &levels);
    return QStringLiteral(
               "# bash completion for vorn; written by 'vorn completion bash'.\n"
               "# Load it with: source <(vorn completion bash)\n"
               "_vorn_commands() {\n"
               "    case \"$1\" in\n"
               "%1"
               "    esac\n"
               "}\n"
               "_vorn_words() {\n"
               "    case \"$1\" in\n"
               "%2"
               "    esac\n"
               "}\n"
               "_vorn() {\n"
               "    local cur=\"${COMP_WORDS[COMP_CWORD]}\" path=\"\" word i\n"
               "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
               "        word=\"${COMP_WORDS[i]}\"\n"
               "        case \" $(_vorn_commands \"$path\") \" in\n"
               "            *\" $word \"*) path=\"${path:+$path }$word\" ;;\n"
               "        esac\n"
               "    done\n"
               "    COMPREPLY=($(compgen -W \"$(_vorn_words \"$path\")\" -- \"$cur\"))\n"
               "}\n"
               "complete -o default -F _vorn vorn\n")
        .arg(caseArms(levels, true), caseArms(levels, false));
}

QString zshScript(const CLI::App& root, const QMap<QString, QStringList>& extraWords)
{
    return QStringLiteral("#compdef vorn\n"
                          "# zsh completion for vorn; written by 'vorn completion zsh'.\n"
                          "# Load it with: source <(vorn completion zsh)\n"
                          "autoload -U +X bashcompinit && bashcompinit\n")
        + bashScript(root, extraWords);
}

} // namespace Completion
