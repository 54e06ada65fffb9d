// SPDX-License-Identifier: MIT
#include "ServiceRequestArgs.h"

#include "ArgumentMaps.h"
#include "ExitStatus.h"
#include "Output.h"
#include "ResultCodes.h"
#include "TokenStore.h"

#include <NubraCommon.h>

#include <CLI/CLI.hpp>

void ServiceRequestArgs::addTo(CLI::App& command, const std::string& catalogueHelp)
{
    command.add_option("interface", interface, catalogueHelp)->required();
    command.add_option("body", body, "Body fields: key=value, key:=json, a JSON object or @file.json");
    // One value per --param / --header: the arguments after it are the body again.
    command.add_option("-p,--param", params, "A parameter (same forms); repeatable")->allow_extra_args(false);
    command.add_option("-H,--header", headers, "A header (same forms); repeatable")->allow_extra_args(false);
    command.add_option("--source", source, "The request's source string")->capture_default_str();
    command.add_option("--token", token, "User token, sent as the X-Auth-Token header (default: the one 'vorn login' stored)")->envname("VORN_TOKEN");
}

bool ServiceRequestArgs::parse(Output& out, Maps* maps, int* exitStatus) const
{
    const std::pair<const std::vector<std::string>*, QVariantMap*> groups[] = {
        {&body, &maps->body}, {&params, &maps->params}, {&headers, &maps->headers}};
    const char* names[] = {"body", "--param", "--header"};
    for (int i = 0; i < 3; ++i) {
        const ArgumentMaps::Parsed parsed = ArgumentMaps::parse(*groups[i].first);
        if (!parsed.ok()) {
            *exitStatus = out.fail(parsed.fileMissing ? ExitStatus::NoInput : ExitStatus::Usage,
                                   QStringLiteral("%1: %2").arg(QString::fromLatin1(names[i]), parsed.error));
            return false;
        }
        *groups[i].second = parsed.map;
    }
    // The given token, else the one `vorn login` stored.
    const QString userToken = token.empty() ? TokenStore::load().token : QString::fromStdString(token);
    if (!userToken.isEmpty() && !maps->headers.contains(QStringLiteral("X-Auth-Token")))
        maps->headers.insert(QStringLiteral("X-Auth-Token"), userToken);
    return true;
}

std::optional<int> ServiceRequestArgs::prepare(Output& out, InterfaceNames::Catalogue catalogue, Maps* maps,
                                               int* exitStatus) const
{
    if (!parse(out, maps, exitStatus))
        return std::nullopt;
    const QString name = QString::fromStdString(interface);
    const std::optional<int> value = InterfaceNames::resolve(catalogue, name, false);
    if (!value)
        *exitStatus = out.fail(NubraCommon::UnknownInterface,
                               InterfaceNames::unknownMessage(catalogue, name),
                               {{QStringLiteral("code"), int(NubraCommon::UnknownInterface)},
                                {QStringLiteral("codeName"), ResultCodes::name(NubraCommon::UnknownInterface)}});
    return value;
}
