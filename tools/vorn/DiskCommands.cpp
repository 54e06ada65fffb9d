// SPDX-License-Identifier: MIT
// disk and upload: the cloud-disk requests (VornCloudDiskRequest), and file
// uploads with a progress bar.
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_ACCOUNT

#include "ExitStatus.h"
#include "InterfaceNames.h"
#include "ProgressBar.h"
#include "ReplyStatus.h"
#include "ServiceRequestArgs.h"
#include "StandardInput.h"

#include <VornNubraHelper.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

namespace {

using InterfaceNames::Catalogue;
using NubraCommon::VornCloudDiskInterface;

// Runs one blocking cloud-disk call, with a progress bar while it uploads.
QVariantMap diskCall(VornNubraHelper* helper, VornCloudDiskInterface iface, const ServiceRequestArgs::Maps& maps,
                     const QString& source)
{
    QVariantMap reply;
    ProgressBar bar(QStringLiteral("upload"), stderr);
    const QMetaObject::Connection progress =
        QObject::connect(helper, &VornNubraHelper::uploadProgress, [&bar](qint64 sent, qint64 total) {
            bar.update(sent, total);
        });
    helper->VornCloudDiskRequest(iface, reply, maps.body, maps.params, maps.headers, source);
    QObject::disconnect(progress);
    return reply;
}

int runDisk(CommandContext& context, const ServiceRequestArgs& args)
{
    Output& out = context.out();
    int status = ExitStatus::Ok;
    ServiceRequestArgs::Maps maps;
    const std::optional<int> value = args.prepare(out, Catalogue::CloudDisk, &maps, &status);
    VornNubraHelper* helper = value ? context.helper(&status) : nullptr;
    if (!helper)
        return status;
    const QVariantMap reply = diskCall(helper, VornCloudDiskInterface(*value), maps, QString::fromStdString(args.source));
    const int code = ReplyStatus::codeOf(reply);
    out.answer(QStringLiteral("disk %1").arg(InterfaceNames::requestName(Catalogue::CloudDisk, *value)), code, reply);
    return code;
}

struct UploadArgs {
    std::vector<std::string> files;
    long long spaceId = -1;
    std::string token;
    std::string stdinName = "stdin";
};

// The whole upload: an upload token for the space, the files queued, the
// queue run with progress.
int runUpload(CommandContext& context, const UploadArgs& args)
{
    Output& out = context.out();
    QStringList files;
    // The upload queue reads named files: "-" is copied into a private
    // temporary folder first, under the name given with --name.
    QTemporaryDir stdinDir;
    for (const std::string& file : args.files) {
        if (StandardInput::isDash(QString::fromStdString(file))) {
            QByteArray content;
            QString error;
            const QString name = QFileInfo(QString::fromStdString(args.stdinName)).fileName();
            if (name.isEmpty())
                return out.fail(ExitStatus::Usage, QStringLiteral("--name needs a file name"));
            const QString copy = stdinDir.filePath(name);
            if (!StandardInput::readFile(QStringLiteral("-"), &content, &error))
                return out.fail(ExitStatus::NoInput, error);
            QFile target(copy);
            if (!stdinDir.isValid() || !target.open(QIODevice::WriteOnly) || target.write(content) != content.size())
                return out.fail(ExitStatus::CantCreate,
                                QStringLiteral("cannot keep standard input in %1: %2").arg(copy, target.errorString()));
            target.close();
            files << copy;
            continue;
        }
        const QFileInfo info(QString::fromStdString(file));
        if (!info.isFile() || !info.isReadable())
            return out.fail(ExitStatus::NoInput, QStringLiteral("cannot read %1").arg(info.filePath()));
        files << info.absoluteFilePath();
    }
    const QString token = context.userToken(args.token);
    if (token.isEmpty())
        return out.fail(ExitStatus::Usage, QStringLiteral("upload needs the user's token: run 'vorn login' first, "
                                                          "or give --token or VORN_TOKEN"));
    int status = ExitStatus::Ok;
    VornNubraHelper* helper = context.helper(&status);
    if (!helper)
        return status;
    const QString source = QStringLiteral("vorn");
    const QVariantMap auth{{QStringLiteral("X-Auth-Token"), token}};

    QVariantMap tokenBody;
    if (args.spaceId >= 0)
        tokenBody.insert(QStringLiteral("spaceId"), args.spaceId);
    QVariantMap tokenReply;
    helper->VornCloudDiskRequest(VornCloudDiskInterface::SdkDynamicEncodeToken, tokenReply, tokenBody, {}, auth, source);
    const QVariantMap tokenResult = tokenReply.value(QStringLiteral("result")).toMap();
    if (ReplyStatus::codeOf(tokenReply) != NubraCommon::Success) {
        out.answer(QStringLiteral("disk sdkDynamicEncodeToken"), ReplyStatus::codeOf(tokenReply), tokenReply);
        return ReplyStatus::codeOf(tokenReply);
    }

    QVariantMap queueParams{{QStringLiteral("files"), files},
                            {QStringLiteral("uploadToken"), tokenResult.value(QStringLiteral("uploadToken"))},
                            {QStringLiteral("spaceId"), tokenResult.value(QStringLiteral("spaceId"))}};
    QVariantMap queued;
    helper->VornCloudDiskRequest(VornCloudDiskInterface::UploadCloudSpaceFile, queued, {}, queueParams, {}, source);
    if (ReplyStatus::codeOf(queued) != NubraCommon::Success) {
        out.answer(QStringLiteral("disk UploadCloudSpaceFile"), ReplyStatus::codeOf(queued), queued);
        return ReplyStatus::codeOf(queued);
    }
    const QVariantMap reply = diskCall(helper, VornCloudDiskInterface::StartUploadStart, {}, source);
    const int code = ReplyStatus::codeOf(reply);
    out.answer(QStringLiteral("disk startUpload:start"), code, reply.value(QStringLiteral("result")),
               {{QStringLiteral("spaceId"), tokenResult.value(QStringLiteral("spaceId"))}});
    return code;
}

} // namespace

void addDiskCommands(CLI::App& app, CommandContext& context)
{
    auto args = std::make_shared<ServiceRequestArgs>();
    CLI::App* disk = app.add_subcommand(
        "disk", "Run a cloud-disk request (VornCloudDiskRequest): spaces, upload tokens, the upload queue");
    args->addTo(*disk, "Cloud-disk entry: FetchFrontSpace, getDefaultSpaceInfo, 1, ... (see 'vorn interfaces')");
    disk->footer("Examples:\n  vorn disk FetchFrontSpace --token \"$VORN_TOKEN\"\n"
                 "  vorn disk ChangeSpace spaceId:=2 --token \"$VORN_TOKEN\"\n"
                 "The helper returns the reply map itself; vorn reports Success when its \"status\" is \"success\", "
                 "ResponseFailed otherwise, RequestRejected when the request could not start. StartUploadStart shows "
                 "the upload's progress on standard error.");
    disk->callback([&context, args] { context.action = [&context, args] { return runDisk(context, *args); }; });

    auto upload = std::make_shared<UploadArgs>();
    CLI::App* uploadCommand = app.add_subcommand(
        "upload", "Upload files to a cloud-disk space: upload token, queue, start, with a progress bar");
    uploadCommand->add_option("files", upload->files, "Files to upload; - reads one from standard input")->required();
    uploadCommand->add_option("--space", upload->spaceId, "Space id (default: the user's front space)");
    uploadCommand->add_option("--name", upload->stdinName, "The cloud's name for a file read from standard input (-)")
        ->capture_default_str();
    uploadCommand->add_option("--token", upload->token, "User token (vorn login prints one)")->envname("VORN_TOKEN");
    uploadCommand->footer("Example:\n  vorn upload scan-0001.vscan --space 2 --token \"$VORN_TOKEN\"\n"
                          "Progress goes to standard error; the answer lists every file with its status.");
    uploadCommand->callback([&context, upload] {
        context.action = [&context, upload] { return runUpload(context, *upload); };
    });
}

#else
void addDiskCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "disk", "Run a cloud-disk request (VornCloudDiskRequest)");
    addUnavailableCommand(app, context, "upload", "Upload files to a cloud-disk space");
}
#endif
