// SPDX-License-Identifier: MIT
// protect, unprotect and debase64: the helper's protected-data calls for
// strings, JSON files and files on disk.
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_PROTECT

#include "ExitStatus.h"
#include "StandardInput.h"

#include <VornNubraHelper.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

namespace {

struct ProtectArgs {
    std::string text;
    std::string jsonFile;
    std::string file;
    std::string out;
};

struct UnprotectArgs {
    std::string text;
    std::string file;
    std::string key;
    std::string out;
};

// A file's content, or standard input's for "-".
bool readWhole(Output& out, const QString& path, QByteArray* content, int* status)
{
    QString error;
    if (!StandardInput::readFile(path, content, &error)) {
        *status = out.fail(ExitStatus::NoInput, error);
        return false;
    }
    return true;
}

// A text argument, or standard input for "-".
bool readText(Output& out, const std::string& argument, QString* text, int* status)
{
    QString error;
    if (!StandardInput::readText(QString::fromStdString(argument), text, &error)) {
        *status = out.fail(ExitStatus::NoInput, error);
        return false;
    }
    return true;
}

// The serialisation calls need no cloud: the helper is created without a
// configuration check (its client simply stays unconfigured).
VornNubraHelper* localHelper(Output& out, int* status)
{
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    if (!helper)
        *status = out.fail(ExitStatus::Software, QStringLiteral("the helper is gone (process exiting)"));
    return helper;
}

int runProtect(CommandContext& context, const ProtectArgs& args)
{
    Output& out = context.out();
    const int sources = int(!args.text.empty()) + int(!args.jsonFile.empty()) + int(!args.file.empty());
    if (sources != 1)
        return out.fail(ExitStatus::Usage, QStringLiteral("protect needs exactly one of TEXT, --json-file, --file"));
    int status = ExitStatus::Ok;
    const QString target = QString::fromStdString(args.out);

    if (!args.jsonFile.empty()) {
        QByteArray content;
        if (!readWhole(out, QString::fromStdString(args.jsonFile), &content, &status))
            return status;
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(content, &error);
        if (error.error != QJsonParseError::NoError || !document.isObject())
            return out.fail(ExitStatus::DataError,
                            QStringLiteral("%1 does not hold a JSON object (%2)")
                                .arg(QString::fromStdString(args.jsonFile),
                                     error.error != QJsonParseError::NoError ? error.errorString()
                                                                             : QStringLiteral("not an object")));
        VornNubraHelper* helper = localHelper(out, &status);
        if (!helper)
            return status;
        if (!target.isEmpty()) {
            const int code = helper->serializeData(document.object(), target);
            out.answer(QStringLiteral("serializeData(object, file)"), code, QVariantMap{{QStringLiteral("file"), target}});
            return code;
        }
        QString result;
        const int code = helper->serializeObj(document.object(), result);
        out.answer(QStringLiteral("serializeObj"), code, QVariantMap{{QStringLiteral("protected"), result}});
        return code;
    }

    QString text;
    if (!args.file.empty()) {
        QByteArray content;
        if (!readWhole(out, QString::fromStdString(args.file), &content, &status))
            return status;
        text = QString::fromUtf8(content);
    } else if (!readText(out, args.text, &text, &status)) {
        return status;
    }
    VornNubraHelper* helper = localHelper(out, &status);
    if (!helper)
        return status;
    if (!target.isEmpty()) {
        const int code = helper->serializeFile(text, target);
        out.answer(QStringLiteral("serializeFile"), code, QVariantMap{{QStringLiteral("file"), target}});
        return code;
    }
    QString result;
    const int code = helper->serializeData(text, result);
    out.answer(QStringLiteral("serializeData"), code, QVariantMap{{QStringLiteral("protected"), result}});
    return code;
}

int runUnprotect(CommandContext& context, const UnprotectArgs& args)
{
    Output& out = context.out();
    if (args.text.empty() == args.file.empty())
        return out.fail(ExitStatus::Usage, QStringLiteral("unprotect needs exactly one of TEXT or --file"));
    int status = ExitStatus::Ok;
    QString text;
    if (!args.file.empty()) {
        QByteArray content;
        if (!readWhole(out, QString::fromStdString(args.file), &content, &status))
            return status;
        text = QString::fromUtf8(content).trimmed();
    } else if (!readText(out, args.text, &text, &status)) {
        return status;
    }
    VornNubraHelper* helper = localHelper(out, &status);
    if (!helper)
        return status;
    QString restored;
    const int code = args.key.empty() ? helper->deserializeData(text, restored)
                                      : helper->deserializeData(text, QString::fromStdString(args.key), restored);
    QVariantMap payload{{QStringLiteral("text"), restored}};
    const QJsonDocument asJson = QJsonDocument::fromJson(restored.toUtf8());
    if (asJson.isObject())
        payload.insert(QStringLiteral("json"), asJson.object().toVariantMap());
    if (!args.out.empty()) {
        QFile file(QString::fromStdString(args.out));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(restored.toUtf8()) < 0)
            return out.fail(ExitStatus::CantCreate,
                            QStringLiteral("cannot write %1: %2").arg(file.fileName(), file.errorString()));
        payload.insert(QStringLiteral("file"), file.fileName());
    }
    out.answer(args.key.empty() ? QStringLiteral("deserializeData") : QStringLiteral("deserializeData(key)"), code,
               payload);
    if (restored.isEmpty() && !text.isEmpty())
        out.note(QStringLiteral("(the restored text is empty: the input was not protected text, or the key is wrong)"));
    return code;
}

int runDebase64(CommandContext& context, const std::string& argument)
{
    int status = ExitStatus::Ok;
    QString text;
    if (!readText(context.out(), argument, &text, &status))
        return status;
    VornNubraHelper* helper = localHelper(context.out(), &status);
    if (!helper)
        return status;
    const std::string bytes = helper->deBase64(text.toStdString());
    const QByteArray data = QByteArray::fromStdString(bytes);
    context.out().answer(QStringLiteral("deBase64"), 0,
                         QVariantMap{{QStringLiteral("bytes"), data.size()},
                                     {QStringLiteral("hex"), QString::fromLatin1(data.toHex())},
                                     {QStringLiteral("text"), QString::fromUtf8(data)}});
    return ExitStatus::Ok;
}

} // namespace

void addProtectCommands(CLI::App& app, CommandContext& context)
{
    // An existing file, or "-" for standard input.
    const CLI::Validator fileOrDash(
        [](std::string& value) { return value == "-" ? std::string() : CLI::ExistingFile(value); }, "FILE or -");
    auto protect = std::make_shared<ProtectArgs>();
    CLI::App* protectCommand = app.add_subcommand(
        "protect", "Turn a string, a JSON object (file) or a file's text into protected text (AES + base64)");
    protectCommand->add_option("text", protect->text, "The string to protect; - reads it from standard input");
    protectCommand->add_option("--json-file", protect->jsonFile, "A file holding one JSON object (serializeObj); - reads standard input")
        ->check(fileOrDash);
    protectCommand->add_option("--file", protect->file, "A file whose text is protected (serializeData); - reads standard input")
        ->check(fileOrDash);
    protectCommand->add_option("-o,--out", protect->out,
                               "Write the protected text to this file (serializeFile / serializeData(object, file))");
    protectCommand->footer("Examples:\n  vorn protect 'some text'\n  echo 'some text' | vorn protect -\n  vorn protect --json-file settings.json -o settings.dat\n"
                           "Exit status: 0, or 8 (SerializeFailed) for empty input or an unwritable --out.");
    protectCommand->callback([&context, protect] {
        context.action = [&context, protect] { return runProtect(context, *protect); };
    });

    auto unprotect = std::make_shared<UnprotectArgs>();
    CLI::App* unprotectCommand =
        app.add_subcommand("unprotect", "Restore protected text (deserializeData), optionally with another key");
    unprotectCommand->add_option("text", unprotect->text, "The protected text; - reads it from standard input");
    unprotectCommand->add_option("--file", unprotect->file, "A file holding the protected text; - reads standard input")
        ->check(fileOrDash);
    unprotectCommand->add_option("--key", unprotect->key, "Restore with this key instead of the built-in one");
    unprotectCommand->add_option("-o,--out", unprotect->out, "Also write the restored text to this file");
    unprotectCommand->footer("Examples:\n  vorn unprotect w92I8OxNhmhCmtFSHfVNfw==\n  vorn unprotect --file settings.dat\n"
                             "The helper cannot tell a wrong key or text that was never protected: it always "
                             "answers 0 and returns what decrypts.");
    unprotectCommand->callback([&context, unprotect] {
        context.action = [&context, unprotect] { return runUnprotect(context, *unprotect); };
    });

    auto text = std::make_shared<std::string>();
    CLI::App* debase64 = app.add_subcommand("debase64", "Decode base64 text with the helper's decoder (deBase64)");
    debase64->add_option("text", *text, "base64 text; - reads it from standard input")->required();
    debase64->callback([&context, text] { context.action = [&context, text] { return runDebase64(context, *text); }; });
}

#else
void addProtectCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "protect", "Protect a string, JSON file or file");
    addUnavailableCommand(app, context, "unprotect", "Restore protected text");
}
#endif
