// SPDX-License-Identifier: MIT
// interfaces, codes and config: what vorn can ask for and where it asks.

#include "CommandContext.h"
#include "ConfigDiscovery.h"
#include "ExitStatus.h"
#include "InterfaceNames.h"
#include "ResultCodes.h"
#include "TokenStore.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <CLI/CLI.hpp>

#include <QVariantList>

namespace {

using InterfaceNames::Catalogue;

QVariantList catalogueListing(Catalogue catalogue)
{
    const auto general = NubraCommon::createInterfaceMap();
    QVariantList list;
    for (const InterfaceNames::Entry& entry : InterfaceNames::entries(catalogue)) {
        QVariantMap item{{QStringLiteral("name"), QString::fromLatin1(entry.enumName)},
                         {QStringLiteral("value"), entry.value},
                         {QStringLiteral("request"), QString::fromLatin1(entry.requestName)}};
        if (catalogue == Catalogue::General) {
            const auto found = general.find(NubraCommon::Interface(entry.value));
            if (found != general.end()) {
                const QVariantMap& tmpl = found->second;
                item.insert(QStringLiteral("requiredBody"), tmpl.value(QStringLiteral("body")).toStringList());
                item.insert(QStringLiteral("sendsToken"), tmpl.contains(QStringLiteral("X-Auth-Token")));
                item.insert(QStringLiteral("sendsParams"), tmpl.contains(QStringLiteral("params")));
            }
        }
        list.append(item);
    }
    return list;
}

int runInterfaces(CommandContext& context)
{
    Output& out = context.out();
    const QList<Catalogue> catalogues{Catalogue::General, Catalogue::UserAccount, Catalogue::CloudDisk};
    if (out.json()) {
        QVariantMap all;
        for (Catalogue catalogue : catalogues)
            all.insert(InterfaceNames::catalogueName(catalogue), catalogueListing(catalogue));
        out.answer(QStringLiteral("interfaces"), 0, all);
        return ExitStatus::Ok;
    }
    const QMap<Catalogue, QString> usedBy{{Catalogue::General, QStringLiteral("vorn post/postv1/postv2/get")},
                                          {Catalogue::UserAccount, QStringLiteral("vorn account")},
                                          {Catalogue::CloudDisk, QStringLiteral("vorn disk")}};
    for (Catalogue catalogue : catalogues) {
        out.note(QStringLiteral("%1 catalogue (%2):").arg(InterfaceNames::catalogueName(catalogue), usedBy[catalogue]));
        for (const QVariant& itemValue : catalogueListing(catalogue)) {
            const QVariantMap item = itemValue.toMap();
            QString line = QStringLiteral("  %1 %2 -> \"%3\"")
                               .arg(item.value(QStringLiteral("value")).toInt(), 3)
                               .arg(item.value(QStringLiteral("name")).toString(), -32)
                               .arg(item.value(QStringLiteral("request")).toString());
            const QStringList required = item.value(QStringLiteral("requiredBody")).toStringList();
            if (!required.isEmpty())
                line += QStringLiteral("  needs: ") + required.join(QStringLiteral(", "));
            if (item.value(QStringLiteral("sendsToken")).toBool())
                line += QStringLiteral("  [token]");
            if (item.value(QStringLiteral("sendsParams")).toBool())
                line += QStringLiteral("  [params]");
            out.note(line);
        }
    }
    return ExitStatus::Ok;
}

int runCodes(CommandContext& context)
{
    Output& out = context.out();
    QVariantList codes;
    for (int code = 0; code <= 12; ++code)
        codes.append(QVariantMap{{QStringLiteral("code"), code},
                                 {QStringLiteral("name"), ResultCodes::name(code)},
                                 {QStringLiteral("meaning"), ResultCodes::meaning(code)}});
    QVariantList statuses;
    for (const ExitStatus::Meaning& meaning : ExitStatus::kMeanings)
        statuses.append(QVariantMap{{QStringLiteral("status"), meaning.status},
                                    {QStringLiteral("meaning"), QString::fromLatin1(meaning.text)}});
    if (out.json()) {
        out.answer(QStringLiteral("codes"), 0, QVariantMap{{QStringLiteral("resultCodes"), codes},
                                                          {QStringLiteral("exitStatuses"), statuses}});
        return ExitStatus::Ok;
    }
    out.note(QStringLiteral("Result codes (a command that ran a helper call exits with its code):"));
    for (const QVariant& entry : codes) {
        const QVariantMap map = entry.toMap();
        out.note(QStringLiteral("  %1  %2 %3")
                     .arg(map.value(QStringLiteral("code")).toInt(), 3)
                     .arg(map.value(QStringLiteral("name")).toString(), -17)
                     .arg(map.value(QStringLiteral("meaning")).toString()));
    }
    out.note(QStringLiteral("Exit statuses of vorn itself:"));
    for (const QVariant& entry : statuses) {
        const QVariantMap map = entry.toMap();
        out.note(QStringLiteral("  %1  %2")
                     .arg(map.value(QStringLiteral("status")).toInt(), 3)
                     .arg(map.value(QStringLiteral("meaning")).toString()));
    }
    return ExitStatus::Ok;
}

int runConfig(CommandContext& context)
{
    int status = ExitStatus::Ok;
    VornNubraHelper* helper = context.helper(&status);
    if (!helper)
        return status;
    const QVariantMap data = helper->configData();
    QVariantMap summary{{QStringLiteral("file"), context.configPath()},
                        {QStringLiteral("foundThrough"), context.configOrigin()},
                        {QStringLiteral("baseUrl"), data.value(QStringLiteral("baseUrl"))},
                        {QStringLiteral("requests"), QVariant(data.value(QStringLiteral("requests")).toMap().keys())}};
    for (const QString& section : {QStringLiteral("mqtt"), QStringLiteral("upgrade"), QStringLiteral("disk")}) {
        if (data.contains(section))
            summary.insert(section, TokenStore::maskSecrets(data.value(section)));
    }
    // Secrets are never printed: the stored token shows only whose it is.
    QString error;
    const TokenStore::Stored stored = TokenStore::load(&error);
    QVariantMap token{{QStringLiteral("file"), TokenStore::path()}};
    if (stored.ok()) {
        token.insert(QStringLiteral("token"), TokenStore::masked(stored.token));
        token.insert(QStringLiteral("account"), stored.account);
        token.insert(QStringLiteral("cloud"), stored.cloud);
        token.insert(QStringLiteral("savedAt"), stored.savedAt);
    } else {
        token.insert(QStringLiteral("token"), error.isEmpty() ? QStringLiteral("(none: run 'vorn login')") : error);
    }
    summary.insert(QStringLiteral("storedToken"), token);
    context.out().answer(QStringLiteral("config"), 0, summary);
    return ExitStatus::Ok;
}

} // namespace

void addInfoCommands(CLI::App& app, CommandContext& context)
{
    app.add_subcommand("interfaces", "List the three request catalogues: names, numbers, request names, needs")
        ->callback([&context] { context.action = [&context] { return runInterfaces(context); }; });
    app.add_subcommand("codes", "List the result codes and vorn's exit statuses")
        ->callback([&context] { context.action = [&context] { return runCodes(context); }; });
    app.add_subcommand("config", "Show which client configuration vorn uses and what cloud it points at")
        ->callback([&context] { context.action = [&context] { return runConfig(context); }; });
}
