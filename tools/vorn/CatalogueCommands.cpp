// SPDX-License-Identifier: MIT
// post, postv1, postv2 and get: the helper's catalogue calls, one
// request of the general catalogue each.

#include "ArgumentMaps.h"
#include "CommandContext.h"
#include "ExitStatus.h"
#include "FailureCause.h"
#include "InterfaceNames.h"
#include "ResultCodes.h"

#include <VornNubraHelper.h>

#include <CLI/CLI.hpp>

#include <map>

namespace {

using InterfaceNames::Catalogue;

enum class Verb { Post, PostV1, PostV2, Get };

struct CatalogueArgs {
    Verb verb = Verb::Post;
    std::string interface;
    std::vector<std::string> fields;
    std::vector<std::string> params;
    std::vector<std::string> headers;
    int timeoutMs = 15000;
    std::string token;
};

QString verbName(Verb verb)
{
    switch (verb) {
    case Verb::Post:
        return QStringLiteral("post");
    case Verb::PostV1:
        return QStringLiteral("postv1");
    case Verb::PostV2:
        return QStringLiteral("postv2");
    case Verb::Get:
        break;
    }
    return QStringLiteral("get");
}

// Parses one group of fields; reports and returns false on a bad one.
bool parseFields(Output& out, const std::vector<std::string>& fields, const QString& what, QVariantMap* map,
                 int* exitStatus)
{
    const ArgumentMaps::Parsed parsed = ArgumentMaps::parse(fields);
    if (!parsed.ok()) {
        *exitStatus = out.fail(parsed.fileMissing ? ExitStatus::NoInput : ExitStatus::Usage,
                               QStringLiteral("%1: %2").arg(what, parsed.error));
        return false;
    }
    *map = parsed.map;
    return true;
}

// Which body keys the catalogue entry needs and the call lacked.
QString missingFields(NubraCommon::Interface interface, const QVariantMap& fields)
{
    const auto catalogue = NubraCommon::createInterfaceMap();
    const auto found = catalogue.find(interface);
    QStringList missing;
    if (found != catalogue.end()) {
        for (const QString& key : found->second.value(QStringLiteral("body")).toStringList())
            if (!fields.contains(key))
                missing << QLatin1Char('"') + key + QLatin1Char('"');
    }
    return missing.isEmpty() ? QString()
                             : QStringLiteral("the request needs %1; nothing was sent").arg(missing.join(QStringLiteral(", ")));
}

int runCatalogueCall(CommandContext& context, const CatalogueArgs& args)
{
    Output& out = context.out();
    const QString verb = verbName(args.verb);
    int status = ExitStatus::Ok;

    QVariantMap fields;
    QVariantMap params;
    QVariantMap headers;
    if (!parseFields(out, args.fields, args.verb == Verb::Get ? QStringLiteral("params") : QStringLiteral("body"),
                     &fields, &status)
        || !parseFields(out, args.params, QStringLiteral("--param"), &params, &status)
        || !parseFields(out, args.headers, QStringLiteral("--header"), &headers, &status))
        return status;

    const QString name = QString::fromStdString(args.interface);
    const std::optional<int> value = InterfaceNames::resolve(Catalogue::General, name, true);
    if (!value) {
        return out.fail(NubraCommon::UnknownInterface,
                        InterfaceNames::unknownMessage(Catalogue::General, name),
                        {{QStringLiteral("code"), int(NubraCommon::UnknownInterface)},
                         {QStringLiteral("codeName"), ResultCodes::name(NubraCommon::UnknownInterface)}});
    }

    VornNubraHelper* helper = context.helper(&status);
    if (!helper)
        return status;
    const QString token = context.userToken(args.token);
    if (!token.isEmpty())
        helper->setUserToken(token);

    const auto interface = NubraCommon::Interface(*value);
    QVariantMap result;
    QVariant resultV2;
    NubraCommon::ErrorCode code = NubraCommon::Success;
    switch (args.verb) {
    case Verb::Post:
        code = helper->post(interface, fields, result, params, args.timeoutMs);
        break;
    case Verb::PostV1:
        code = helper->postv1(interface, headers, fields, result, params, args.timeoutMs);
        break;
    case Verb::PostV2:
        code = helper->postv2(interface, fields, resultV2, params, args.timeoutMs);
        break;
    case Verb::Get:
        code = helper->get(interface, fields, result, args.timeoutMs);
        break;
    }
    if (code == NubraCommon::MissingField)
        FailureCause::set(missingFields(interface, fields));
    if (code == NubraCommon::Timeout)
        FailureCause::set(QStringLiteral("no answer within %1 s (--timeout %2)").arg(args.timeoutMs / 1000.0).arg(args.timeoutMs));
    const QVariant payload = args.verb == Verb::PostV2 ? resultV2 : QVariant(result);
    out.answer(QStringLiteral("%1 %2").arg(verb, InterfaceNames::requestName(Catalogue::General, *value)), int(code),
               payload, {{QStringLiteral("interface"), InterfaceNames::describe(Catalogue::General, *value)}});
    const bool emptyPayload = args.verb == Verb::PostV2 ? !resultV2.isValid() : result.isEmpty();
    if (code == NubraCommon::ResponseFailed && emptyPayload && !context.options.verbose
        && !FailureCause::current().known())
        out.note(QStringLiteral("(%1 hands back only the answer's \"result\", which is empty here; run with "
                                "--verbose to see the cloud's whole answer, or use 'vorn get')")
                     .arg(verb));
    return int(code);
}

void addCatalogueVerb(CLI::App& app, CommandContext& context, Verb verb, const std::string& description)
{
    auto args = std::make_shared<CatalogueArgs>();
    args->verb = verb;
    CLI::App* command = app.add_subcommand(verbName(verb).toStdString(), description);
    command->add_option("interface", args->interface,
                        "Catalogue entry: enumerator name (GetUserProfile), request name (getUserProfile) or number")
        ->required();
    command->add_option(verb == Verb::Get ? "params" : "body", args->fields,
                        verb == Verb::Get
                            ? "Parameters: key=value (string), key:=json (typed), a JSON object, or @file.json"
                            : "Body fields: key=value (string), key:=json (typed), a JSON object, or @file.json");
    if (verb != Verb::Get) {
        command->add_option("-p,--param", args->params, "A query parameter (same forms as the body); repeatable")
            ->allow_extra_args(false); // one value per --param: what follows is the body again
    }
    if (verb == Verb::PostV1) {
        command->add_option("-H,--header", args->headers,
                            "A header (same forms); postv1 sends these instead of the user token; repeatable")
            ->allow_extra_args(false);
    }
    command->add_option("-t,--timeout", args->timeoutMs, "Time-out in milliseconds")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command->add_option("--token", args->token, "User token sent as X-Auth-Token (default: the one 'vorn login' stored, else the helper's placeholder)")
        ->envname("VORN_TOKEN");
    static const std::map<Verb, std::string> examples{
        {Verb::Post, "  vorn post UserLogin account=demo@vorn.example password='scan3d!'\n"
                     "  vorn post GetUserProfile userID:=1001 --token \"$VORN_TOKEN\""},
        {Verb::PostV1, "  vorn postv1 GetUserProfile userID:=1001 -H X-Auth-Token=\"$VORN_TOKEN\""},
        {Verb::PostV2, "  vorn postv2 GetDeviceAction sn=VS2024000123"},
        {Verb::Get, "  vorn get FetchCountries\n  vorn get AuthToken token=\"$VORN_TOKEN\""},
    };
    command->footer("Examples:\n" + examples.at(verb) +
                    "\nExit status: the result code (0 Success, 3 MissingField, 4 UnknownInterface, 6 ResponseFailed, "
                    "...; 'vorn codes').");
    command->callback([&context, args] { context.action = [&context, args] { return runCatalogueCall(context, *args); }; });
}

} // namespace

void addCatalogueCommands(CLI::App& app, CommandContext& context)
{
    addCatalogueVerb(app, context, Verb::Post,
                     "Run a general-catalogue request with post(): body fields, optional query parameters");
    addCatalogueVerb(app, context, Verb::PostV1, "Like post, but with your own headers (postv1): no user token added");
    addCatalogueVerb(app, context, Verb::PostV2, "Like post, but the result is returned as it is (postv2)");
    addCatalogueVerb(app, context, Verb::Get,
                     "Run a general-catalogue request with get(): the fields are checked and sent as the body, "
                     "the whole reply is returned");

}
