// SPDX-License-Identifier: MIT
#include "ManPage.h"

#include "CommandTree.h"

#include <CLI/CLI.hpp>

#include <QStringList>

namespace ManPage {

namespace {

QString text(const std::string& value) { return escape(QString::fromStdString(value)); }

// "-c, --config TEXT" in bold names and italic value.
QString optionHead(const CLI::Option& option)
{
    QStringList names;
    for (const std::string& name : option.get_snames())
        names << QStringLiteral("\\fB\\-%1\\fR").arg(text(name));
    for (const std::string& name : option.get_lnames())
        names << QStringLiteral("\\fB\\-\\-%1\\fR").arg(text(name));
    QString head = names.join(QStringLiteral(", "));
    if (option.get_items_expected_max() > 0)
        head += QStringLiteral(" \\fI%1\\fR").arg(text(option.get_type_name().empty() ? "VALUE" : option.get_type_name()));
    return head;
}

QString optionBody(const CLI::Option& option)
{
    QString body = text(option.get_description());
    if (!option.get_default_str().empty())
        body += QStringLiteral(" (default: %1)").arg(text(option.get_default_str()));
    if (!option.get_envname().empty())
        body += QStringLiteral(" (environment: %1)").arg(text(option.get_envname()));
    return body;
}

// A footer's lines: indented ones are examples, kept as they are.
QString footer(const std::string& value)
{
    QString out;
    bool verbatim = false;
    for (const QString& line : QString::fromStdString(value).split(QLatin1Char('\n'))) {
        const bool example = line.startsWith(QLatin1String("  "));
        if (example && !verbatim)
            out += QStringLiteral(".PP\n.nf\n");
        if (!example && verbatim)
            out += QStringLiteral(".fi\n");
        if (!example)
            out += QStringLiteral(".PP\n");
        verbatim = example;
        out += escape(line) + QLatin1Char('\n');
    }
    if (verbatim)
        out += QStringLiteral(".fi\n");
    return out;
}

QString synopsis(const CLI::App& app, const QString& path)
{
    QString line = QStringLiteral("\\fBvorn %1\\fR").arg(escape(path));
    if (!CommandTree::namedOptions(app).empty())
        line += QStringLiteral(" [\\fIOPTIONS\\fR]");
    if (!CommandTree::subcommands(app).empty())
        line += QStringLiteral(" \\fICOMMAND\\fR");
    for (const CLI::Option* positional : CommandTree::positionals(app)) {
        QString name = text(positional->get_name(true)).toUpper();
        if (positional->get_items_expected_max() > 1)
            name += QStringLiteral("...");
        line += positional->get_required() ? QStringLiteral(" \\fI%1\\fR").arg(name)
                                           : QStringLiteral(" [\\fI%1\\fR]").arg(name);
    }
    return line;
}

void command(const CLI::App& app, const QString& path, QString* out)
{
    *out += QStringLiteral(".SS \"%1\"\n").arg(escape(path));
    *out += QStringLiteral(".PP\n%1\n.PP\n%2\n").arg(synopsis(app, path), text(app.get_description()));
    for (const CLI::Option* positional : CommandTree::positionals(app))
        *out += QStringLiteral(".TP\n\\fI%1\\fR\n%2\n")
                    .arg(text(positional->get_name(true)).toUpper(), optionBody(*positional));
    for (const CLI::Option* option : CommandTree::namedOptions(app)) {
        if (option->get_lnames() == std::vector<std::string>{"help"})
            continue;
        *out += QStringLiteral(".TP\n%1\n%2\n").arg(optionHead(*option), optionBody(*option));
    }
    if (!app.get_footer().empty())
        *out += footer(app.get_footer());
    for (const CLI::App* sub : CommandTree::subcommands(app))
        command(*sub, path + QLatin1Char(' ') + QString::fromStdString(sub->get_name()), out);
}

} // namespace

QString escape(const QString& input)
{
    QString out = input;
    out.replace(QLatin1Char('\\'), QLatin1String("\\e"));
    out.replace(QLatin1Char('-'), QLatin1String("\\-"));
    if (out.startsWith(QLatin1Char('.')) || out.startsWith(QLatin1Char('\'')))
        out.prepend(QLatin1String("\\&"));
    out.replace(QLatin1String("\n."), QLatin1String("\n\\&."));
    out.replace(QLatin1String("\n'"), QLatin1String("\n\\&'"));
    return out;
}

QString render(const CLI::App& root, const QString& version, const Extra& extra)
{
    QString out;
    out += QStringLiteral(".TH VORN 1 \"\" \"vorn %1\" \"User Commands\"\n").arg(escape(version));
    out += QStringLiteral(".SH NAME\nvorn \\- the Vorn cloud from a terminal or a script\n");
    out += QStringLiteral(".SH SYNOPSIS\n%1\n").arg(synopsis(root, QString()).replace(QLatin1String("vorn \\fR"), QLatin1String("vorn\\fR")));
    out += QStringLiteral(".SH DESCRIPTION\n%1\n").arg(text(root.get_description()));
    out += QStringLiteral(".SH OPTIONS\n");
    for (const CLI::Option* option : CommandTree::namedOptions(root))
        out += QStringLiteral(".TP\n%1\n%2\n").arg(optionHead(*option), optionBody(*option));
    out += QStringLiteral(".SH COMMANDS\n");
    for (const CLI::App* sub : CommandTree::subcommands(root))
        command(*sub, QString::fromStdString(sub->get_name()), &out);
    out += QStringLiteral(".SH \"EXIT STATUS\"\n");
    for (const QString& paragraph : extra.exitStatus.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        out += QStringLiteral(".PP\n%1\n").arg(escape(paragraph));
    out += QStringLiteral(".SH ENVIRONMENT\n");
    for (const auto& entry : extra.environment)
        out += QStringLiteral(".TP\n\\fB%1\\fR\n%2\n").arg(escape(entry.first), escape(entry.second));
    out += QStringLiteral(".SH FILES\n");
    for (const auto& entry : extra.files)
        out += QStringLiteral(".TP\n\\fI%1\\fR\n%2\n").arg(escape(entry.first), escape(entry.second));
    out += QStringLiteral(".SH \"SEE ALSO\"\ndocs/vorn.md and docs/errors.md in the sources of vorn.\n");
    return out;
}

} // namespace ManPage
