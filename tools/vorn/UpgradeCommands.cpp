// SPDX-License-Identifier: MIT
// upgrade and download: the automatic-upgrade flow (register, check, package
// download with pause, existence test) and background file download.
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_UPGRADE

#include "ExitStatus.h"
#include "FailureCause.h"
#include "HelperLog.h"
#include "InterruptWatcher.h"
#include "ProgressBar.h"
#include "ResultCodes.h"

#include <VornNubraHelper.h>

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>
#include <QUrl>

#include <unistd.h>

namespace {

struct Registration {
    std::string model;
    std::string version;
    std::string versionType = "release";
    std::string lang = "en";
    std::string dir;

    void addTo(CLI::App& command)
    {
        command.add_option("-m,--model", model, "Model code, e.g. VS-200")->required();
        command.add_option("--version", version, "The version installed now, e.g. 1.0.0")->required();
        command.add_option("--version-type", versionType, "release or beta")->capture_default_str();
        command.add_option("--lang", lang, "Language of the release notes")->capture_default_str();
        command.add_option("--dir", dir, "Package folder (default: the application's download folder)");
    }

    QString folder() const
    {
        if (!dir.empty())
            return QFileInfo(QString::fromStdString(dir)).absoluteFilePath();
        return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
            + QStringLiteral("/Kelmar Hub/tarvodownload");
    }

    // The cloud client keeps registrations only for the life of the
    // process, so every upgrade command registers first.
    int run(VornNubraHelper* helper) const
    {
        return helper->setSoftwareAutoUpgrade(QString::fromStdString(model), QString::fromStdString(version),
                                              QString::fromStdString(versionType), QString::fromStdString(lang),
                                              folder());
    }
};

struct UpgradeArgs {
    Registration registration;
    std::string target;
};

QString codeText(int code) { return QStringLiteral("%1 (%2)").arg(ResultCodes::name(code)).arg(code); }

// The helper, once the registration went through; null (with *code the
// exit status) when there is no helper or the registration failed.
VornNubraHelper* registeredHelper(CommandContext& context, const Registration& registration, int* code)
{
    *code = ExitStatus::Ok;
    VornNubraHelper* helper = context.helper(code);
    if (!helper)
        return nullptr;
    *code = registration.run(helper);
    if (*code == NubraCommon::Success)
        return helper;
    context.out().answer(QStringLiteral("setSoftwareAutoUpgrade"), *code, QVariant());
    return nullptr;
}

int runRegister(CommandContext& context, const UpgradeArgs& args)
{
    int status = ExitStatus::Ok;
    VornNubraHelper* helper = context.helper(&status);
    if (!helper)
        return status;
    const int code = args.registration.run(helper);
    context.out().answer(QStringLiteral("setSoftwareAutoUpgrade"), code,
                         QVariantMap{{QStringLiteral("folder"), args.registration.folder()}});
    return code;
}

int runCheck(CommandContext& context, const UpgradeArgs& args)
{
    int code = 0;
    VornNubraHelper* helper = registeredHelper(context, args.registration, &code);
    if (!helper)
        return code;
    QVariantMap info;
    code = helper->checkSoftwareUpgrade(QString::fromStdString(args.registration.model), info);
    context.out().answer(QStringLiteral("checkSoftwareUpgrade"), code, info);
    return code;
}

// The version to download: --to, or the newest one the check finds (then
// *signedBy names the pinned key that verified its signature, if any).
bool targetVersion(CommandContext& context, VornNubraHelper* helper, const UpgradeArgs& args, QString* target,
                   int* code, QString* signedBy = nullptr)
{
    if (!args.target.empty()) {
        *target = QString::fromStdString(args.target);
        return true;
    }
    QVariantMap info;
    *code = helper->checkSoftwareUpgrade(QString::fromStdString(args.registration.model), info);
    if (*code != NubraCommon::Success) {
        context.out().answer(QStringLiteral("checkSoftwareUpgrade"), *code, info);
        return false;
    }
    if (!info.value(QStringLiteral("hasUpgrade")).toBool()) {
        context.out().answer(QStringLiteral("checkSoftwareUpgrade"), *code, info);
        context.out().note(QStringLiteral("no newer version to download; name one with --to"));
        return false;
    }
    *target = info.value(QStringLiteral("version")).toString();
    if (signedBy)
        *signedBy = info.value(QStringLiteral("signedBy")).toString();
    return true;
}

int runDownload(CommandContext& context, const UpgradeArgs& args)
{
    Output& out = context.out();
    int code = 0;
    VornNubraHelper* helper = registeredHelper(context, args.registration, &code);
    QString target, signedBy;
    if (!helper || !targetVersion(context, helper, args, &target, &code, &signedBy))
        return code;

    const QString model = QString::fromStdString(args.registration.model);
    ProgressBar bar(QStringLiteral("%1 %2").arg(model, target), stderr);
    qint64 received = 0;
    qint64 total = 0;
    bool paused = false;
    enum class Outcome { Unknown, Success, Fail } outcome = Outcome::Unknown;
    QObject guard; // context object of this call's connections
    QObject::connect(helper, &VornNubraHelper::downloadProgress, &guard, [&](qint64 done, qint64 size) {
        received = done;
        total = size;
        bar.update(done, size);
    });
    QObject::connect(helper, &VornNubraHelper::downloadSuccess, &guard, [&] { outcome = Outcome::Success; });
    QObject::connect(helper, &VornNubraHelper::downloadFail, &guard, [&] { outcome = Outcome::Fail; });
    // Ctrl-C pauses: the partial package stays for the next run to resume.
    QObject::connect(&InterruptWatcher::instance(), &InterruptWatcher::interrupted, &guard, [&](int, int count) {
        if (count > 1)
            ::_exit(ExitStatus::Interrupted);
        paused = helper->pauseDownloadSoftware() == NubraCommon::Success;
    });
    out.note(QStringLiteral("downloading %1 %2 into %3 (Ctrl-C pauses)").arg(model, target, args.registration.folder()));
    code = helper->startDownloadSoftware(model, target);
    bar.finish(paused ? QStringLiteral("paused") : outcome == Outcome::Fail ? QStringLiteral("failed") : QString());

    const QString outcomeText = paused ? QStringLiteral("paused")
        : outcome == Outcome::Success  ? QStringLiteral("downloadSuccess")
        : outcome == Outcome::Fail     ? QStringLiteral("downloadFail")
                                       : QStringLiteral("none");
    QVariantMap answer{{QStringLiteral("modelCode"), model},
                       {QStringLiteral("version"), target},
                       {QStringLiteral("bytesReceived"), received},
                       {QStringLiteral("bytesTotal"), total},
                       {QStringLiteral("outcome"), outcomeText}};
    // The client refuses a package no pinned key verifies, so a success
    // was signed by the key the check named.
    if (outcome == Outcome::Success && !signedBy.isEmpty())
        answer.insert(QStringLiteral("signedBy"), signedBy);
    out.answer(QStringLiteral("startDownloadSoftware"), code, answer);
    if (code != NubraCommon::Success)
        return code;
    if (paused) {
        out.note(QStringLiteral("paused; run the same command again to resume"));
        return ExitStatus::Interrupted;
    }
    if (outcome == Outcome::Fail) {
        out.note(QStringLiteral("(startDownloadSoftware returns 0 and reports the outcome as a signal: downloadFail; "
                                "vorn exits with ResponseFailed)"));
        return NubraCommon::ResponseFailed;
    }
    return NubraCommon::Success;
}

// `upgrade exists` answers a question: 0 the package is (at least partly) on
// disk (PackageExists), 1 it is not (the helper's Success); a failure keeps
// its result code, except Timeout, whose 1 would read as "no".
int existsStatus(int code)
{
    if (code == NubraCommon::PackageExists)
        return ExitStatus::Ok;
    if (code == NubraCommon::Success)
        return 1;
    return code == NubraCommon::Timeout ? ExitStatus::TempFail : code;
}

int runExists(CommandContext& context, const UpgradeArgs& args)
{
    int code = 0;
    VornNubraHelper* helper = registeredHelper(context, args.registration, &code);
    QString target;
    if (!helper || !targetVersion(context, helper, args, &target, &code))
        return existsStatus(code); // no newer version: no package to find either
    qint64 received = -1;
    qint64 total = -1;
    QObject guard;
    QObject::connect(helper, &VornNubraHelper::downloadProgress, &guard, [&](qint64 done, qint64 size) {
        received = done;
        total = size;
    });
    code = helper->checkDownloadSoftwareExist(QString::fromStdString(args.registration.model), target);
    QVariantMap payload{{QStringLiteral("version"), target}};
    if (received >= 0) {
        payload.insert(QStringLiteral("bytesReceived"), received);
        payload.insert(QStringLiteral("bytesTotal"), total);
    }
    payload.insert(QStringLiteral("present"), code == NubraCommon::PackageExists);
    context.out().answer(QStringLiteral("checkDownloadSoftwareExist"), code, payload);
    if (code == NubraCommon::Success)
        context.out().note(QStringLiteral("not on disk (exit status 1)"));
    return existsStatus(code);
}

struct DownloadArgs {
    std::string url;
    std::string path;
    double seconds = 300;
};

// Where the file lands: the path itself, or the URL's file name inside the
// folder the path names.
QString destinationOf(const QString& url, const QString& path)
{
    if (path.endsWith(QLatin1Char('/')) || QFileInfo(path).isDir())
        return QDir(path).filePath(QUrl(url).fileName());
    return QFileInfo(path).absoluteFilePath();
}

int runFileDownload(CommandContext& context, const DownloadArgs& args)
{
    Output& out = context.out();
    int status = ExitStatus::Ok;
    VornNubraHelper* helper = context.helper(&status);
    if (!helper)
        return status;
    const QString url = QString::fromStdString(args.url);
    const QString destination = destinationOf(url, QString::fromStdString(args.path));
    const QFileInfo before(destination);
    const QDateTime modifiedBefore = before.exists() ? before.lastModified() : QDateTime();

    // downloadFile reports nothing but its acceptance: progress and errors
    // come only as the helper's log lines.
    ProgressBar bar(QFileInfo(destination).fileName(), stderr);
    int errorCode = -1;
    HelperLog::setListener([&](const QString& line) {
        HelperLog::Progress progress;
        if (HelperLog::parseProgress(line, &progress))
            bar.update(progress.received, progress.total);
        const int error = HelperLog::parseError(line);
        if (error >= 0)
            errorCode = error;
    });
    const int code = helper->downloadFile(url, QString::fromStdString(args.path));
    QVariantMap payload{{QStringLiteral("url"), url}, {QStringLiteral("path"), destination}};
    if (code != NubraCommon::Success) {
        HelperLog::setListener(nullptr);
        out.answer(QStringLiteral("downloadFile"), code, payload);
        return code;
    }

    // The file is complete when it appears (or changes) and no partial file
    // remains: the client renames the partial file only when all bytes are in.
    const QString partial = destination + QStringLiteral(".part");
    const auto complete = [&] {
        const QFileInfo now(destination);
        return now.exists() && !QFileInfo::exists(partial) && (!modifiedBefore.isValid() || now.lastModified() != modifiedBefore);
    };
    bool interrupted = false;
    QEventLoop wait;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &wait, [&] {
        if (complete() || errorCode >= 0)
            wait.quit();
    });
    QObject::connect(&InterruptWatcher::instance(), &InterruptWatcher::interrupted, &wait, [&](int, int) {
        interrupted = true;
        wait.quit();
    });
    QTimer::singleShot(int(args.seconds * 1000), &wait, &QEventLoop::quit);
    poll.start(50);
    wait.exec();
    HelperLog::setListener(nullptr);

    int result = NubraCommon::Success;
    if (complete()) {
        bar.finish(QStringLiteral("done"));
        payload.insert(QStringLiteral("bytes"), QFileInfo(destination).size());
    } else if (errorCode >= 0) {
        bar.finish(QStringLiteral("failed"));
        result = NubraCommon::TransportError;
    } else {
        bar.finish(interrupted ? QStringLiteral("interrupted") : QStringLiteral("still running"));
        result = NubraCommon::Timeout;
        if (!interrupted)
            FailureCause::set(QStringLiteral("the file was not complete after %1 s (--seconds)").arg(args.seconds));
    }
    payload.insert(QStringLiteral("outcome"), result == NubraCommon::Success ? QStringLiteral("complete")
                                              : result == NubraCommon::TransportError
                                                  ? QStringLiteral("failed")
                                                  : QStringLiteral("not complete"));
    out.answer(QStringLiteral("downloadFile"), result, payload,
               {{QStringLiteral("accepted"), codeText(code)}});
    return interrupted ? ExitStatus::Interrupted : result;
}

} // namespace

void addUpgradeCommands(CLI::App& app, CommandContext& context)
{
    CLI::App* upgrade = app.add_subcommand("upgrade", "The automatic-upgrade flow: register, check, download, exists");
    upgrade->require_subcommand(1);

    // Every upgrade subcommand takes the registration options and runs `run`.
    const auto add = [&](const char* name, const char* description,
                         int (*run)(CommandContext&, const UpgradeArgs&)) {
        auto args = std::make_shared<UpgradeArgs>();
        CLI::App* command = upgrade->add_subcommand(name, description);
        args->registration.addTo(*command);
        command->callback([&context, args, run] {
            context.action = [&context, args, run] { return run(context, *args); };
        });
        return std::make_pair(command, args);
    };
    add("register", "Register model, version and language (setSoftwareAutoUpgrade)", runRegister);
    add("check", "Register, then ask for a newer version (checkSoftwareUpgrade)", runCheck)
        .first->footer("Example:\n  vorn upgrade check --model 'VS-300 Pro' --version 2.0.0 --lang de");
    const auto download = add(
        "download", "Register, then download a package with progress (startDownloadSoftware); Ctrl-C pauses",
        runDownload);
    download.first->add_option("--to", download.second->target,
                               "Version to download (default: the newest the check finds)");
    download.first->footer("Example:\n  vorn upgrade download --model VS-200 --version 1.1.0 --dir ./packages\n"
                           "Exit status: 0 downloadSuccess, 6 downloadFail, 130 paused (run again to resume), else "
                           "the result code.");
    const auto exists =
        add("exists", "Register, then tell how much of a package is on disk (checkDownloadSoftwareExist)", runExists);
    exists.first->add_option("--to", exists.second->target,
                             "Version of the package (default: the newest the check finds)");
    exists.first->footer("Example:\n  vorn upgrade exists --model VS-200 --version 1.1.0 --to 1.2.0 && echo present\n"
                         "Exit status: 0 the package is on disk (whole or partly: see bytesReceived), 1 it is not, "
                         "75 no answer in time, else the result code (the output names the helper's code: "
                         "PackageExists (12) or Success (0)).");

    auto fileArgs = std::make_shared<DownloadArgs>();
    CLI::App* file = app.add_subcommand(
        "download", "Download a file in the background (downloadFile) and wait until it is complete");
    file->add_option("url", fileArgs->url, "http(s) URL")->required();
    file->add_option("path", fileArgs->path, "Destination file, or a folder (ending in /)")->required();
    file->add_option("-s,--seconds", fileArgs->seconds, "How long to wait for the file")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    file->footer("Example:\n  vorn download http://127.0.0.1:8080/files/scanner-manual.pdf ./downloads/\n"
                 "downloadFile itself reports only whether it was accepted; vorn waits for the file and reads "
                 "progress and errors from the helper's log lines. Exit status: 0 complete, 7 failed, 1 not complete "
                 "in time.");
    file->callback([&context, fileArgs] {
        context.action = [&context, fileArgs] { return runFileDownload(context, *fileArgs); };
    });
}

#else
void addUpgradeCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "upgrade", "Register for upgrades, check, download packages");
    addUnavailableCommand(app, context, "download", "Download a file in the background (downloadFile)");
}
#endif
