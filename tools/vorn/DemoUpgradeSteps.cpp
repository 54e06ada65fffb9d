// SPDX-License-Identifier: MIT
// Demo steps of the upgrade and download calls: registration and check, a
// package download that is paused and resumed, a background file download.

#include "DemoSteps.h"

#if VORN_CLI_UPGRADE

#include "DevCloudAdmin.h"
#include "HelperLog.h"
#include "LocalCloud.h"
#include "ProgressBar.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTimer>
#include <QUrl>

namespace Demo {

namespace {

const QString kModel = QStringLiteral("VS-200");
const QString kInstalled = QStringLiteral("1.1.0");

QString packageFolder(const StepContext& step) { return step.cloud->workPath() + QStringLiteral("/packages"); }

QByteArray sha256Of(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return {};
    return hash.result().toHex();
}

} // namespace

Outcome upgradeCheck(StepContext& step)
{
    const int registered = step.helper->setSoftwareAutoUpgrade(kModel, kInstalled, QStringLiteral("release"),
                                                               QStringLiteral("en"), packageFolder(step));
    step.say(QStringLiteral("setSoftwareAutoUpgrade(%1, %2, release, en, <folder>) -> %3")
                 .arg(kModel, kInstalled, codeText(registered)));
    if (registered != NubraCommon::Success)
        return expectCode(step, registered, NubraCommon::Success, QStringLiteral("registration refused"));
    QVariantMap info;
    const int code = step.helper->checkSoftwareUpgrade(kModel, info);
    if (code != NubraCommon::Success || !info.value(QStringLiteral("hasUpgrade")).toBool())
        return expectCode(step, code == NubraCommon::Success ? -1 : code, NubraCommon::Success,
                          QStringLiteral("no upgrade offered for %1 %2").arg(kModel, kInstalled));
    step.shared.insert(QStringLiteral("upgrade"), info);
    step.say(QStringLiteral("newer: %1 (%2, %3): \"%4\"")
                 .arg(info.value(QStringLiteral("version")).toString(),
                      info.value(QStringLiteral("versionType")).toString(),
                      ProgressBar::formatBytes(info.value(QStringLiteral("packageSize")).toLongLong()),
                      info.value(QStringLiteral("releaseNotes")).toString()));
    return expectCode(step, code, NubraCommon::Success,
                      QStringLiteral("%1 %2 -> %3 available").arg(kModel, kInstalled,
                                                                   info.value(QStringLiteral("version")).toString()));
}

Outcome packageDownload(StepContext& step)
{
    const QVariantMap info = step.shared.value(QStringLiteral("upgrade")).toMap();
    if (info.isEmpty())
        return failStep(step, QStringLiteral("not run: the check found no package"));
    const QString version = info.value(QStringLiteral("version")).toString();
    const qint64 size = info.value(QStringLiteral("packageSize")).toLongLong();

    // Loopback is too fast to see a pause: the cloud serves the first
    // request for this package at 2 MiB/s (the resume is not slowed).
    DevCloudAdmin admin(step.cloud->baseUrl());
    QString error;
    admin.call("POST", QStringLiteral("/devcloud/transfer-faults"),
               QJsonDocument(QJsonObject{{QStringLiteral("path"), QUrl(info.value(QStringLiteral("url")).toString()).path()},
                                         {QStringLiteral("throttle"), 2 * 1024 * 1024},
                                         {QStringLiteral("times"), 1}}),
               &error);
    if (!error.isEmpty())
        return failStep(step, QStringLiteral("cannot slow the transfer down: ") + error);

    qint64 received = 0;
    qint64 pausedAt = -1;
    int successes = 0;
    int failures = 0;
    std::unique_ptr<ProgressBar> bar = step.progress(QStringLiteral("%1 %2").arg(kModel, version));
    QObject guard;
    QObject::connect(step.helper, &VornNubraHelper::downloadProgress, &guard, [&](qint64 done, qint64 total) {
        received = done;
        if (bar)
            bar->update(done, total);
        // Pause at a quarter, from the event loop the download waits in, as
        // a pause button would.
        if (pausedAt < 0 && total > 0 && done * 4 >= total) {
            pausedAt = done;
            QTimer::singleShot(0, &guard, [&] { step.helper->pauseDownloadSoftware(); });
        }
    });
    QObject::connect(step.helper, &VornNubraHelper::downloadSuccess, &guard, [&] { ++successes; });
    QObject::connect(step.helper, &VornNubraHelper::downloadFail, &guard, [&] { ++failures; });
    // Whatever happens, the demo goes on within a minute.
    QTimer watchdog;
    watchdog.setSingleShot(true);
    QObject::connect(&watchdog, &QTimer::timeout, &guard, [&] {
        step.say(QStringLiteral("no end after 60 s: pausing"));
        step.helper->pauseDownloadSoftware();
    });

    watchdog.start(60000);
    const int first = step.helper->startDownloadSoftware(kModel, version);
    watchdog.stop();
    bar->finish(QStringLiteral("paused"));
    if (first != NubraCommon::Success || pausedAt < 0)
        return failStep(step, QStringLiteral("startDownloadSoftware -> %1 without a pause").arg(codeText(first)));
    step.say(QStringLiteral("pauseDownloadSoftware at %1: startDownloadSoftware returned %2")
                 .arg(ProgressBar::formatBytes(pausedAt), codeText(first)));

    const int partial = step.helper->checkDownloadSoftwareExist(kModel, version);
    step.say(QStringLiteral("checkDownloadSoftwareExist -> %1: %2 of the package are on disk")
                 .arg(codeText(partial), ProgressBar::formatBytes(received)));

    bar = step.progress(QStringLiteral("%1 %2 (resumed)").arg(kModel, version));
    successes = 0;
    watchdog.start(60000);
    const int second = step.helper->startDownloadSoftware(kModel, version);
    watchdog.stop();
    bar->finish(QString());
    bar.reset();
    const QString file = packageFolder(step) + QStringLiteral("/VS-200-%1.vpkg").arg(version);
    const qint64 onDisk = QFileInfo(file).size();
    if (second != NubraCommon::Success || successes != 1 || failures != 0)
        return failStep(step, QStringLiteral("resume: %1, %2 downloadSuccess, %3 downloadFail")
                                  .arg(codeText(second))
                                  .arg(successes)
                                  .arg(failures));
    if (onDisk != size || sha256Of(file) != info.value(QStringLiteral("sha256")).toByteArray())
        return failStep(step, QStringLiteral("%1 holds %2 of %3 bytes or the wrong digest").arg(file).arg(onDisk).arg(size));
    const int complete = step.helper->checkDownloadSoftwareExist(kModel, version);
    return expectCode(step, complete, NubraCommon::PackageExists,
                      QStringLiteral("paused at %1, resumed, %2 complete with the published SHA-256")
                          .arg(ProgressBar::formatBytes(pausedAt), ProgressBar::formatBytes(size)));
}

Outcome fileDownload(StepContext& step)
{
    DevCloudAdmin admin(step.cloud->baseUrl());
    QString error;
    const QJsonDocument listing = admin.call("GET", QStringLiteral("/devcloud/files"), {}, &error);
    QJsonObject wanted;
    const QJsonArray files =
        listing.object().value(QStringLiteral("result")).toObject().value(QStringLiteral("files")).toArray();
    for (const QJsonValue& entry : files) {
        if (entry.toObject().value(QStringLiteral("name")).toString() == QLatin1String("calibration-board.bin"))
            wanted = entry.toObject();
    }
    if (wanted.isEmpty())
        return failStep(step, QStringLiteral("the cloud lists no calibration-board.bin %1").arg(error));
    const QString url = wanted.value(QStringLiteral("url")).toString();
    const QString target = step.cloud->workPath() + QStringLiteral("/downloads/calibration-board.bin");

    // downloadFile reports only its acceptance; progress and errors are
    // its log lines, which the demo reads.
    auto bar = step.progress(QStringLiteral("calibration-board.bin"));
    int clientError = -1;
    HelperLog::setListener([&](const QString& line) {
        HelperLog::Progress progress;
        if (HelperLog::parseProgress(line, &progress))
            bar->update(progress.received, progress.total);
        if (HelperLog::parseError(line) >= 0)
            clientError = HelperLog::parseError(line);
    });
    QElapsedTimer elapsed;
    elapsed.start();
    const int code = step.helper->downloadFile(url, target);
    const qint64 returnedAfter = elapsed.elapsed();
    step.say(QStringLiteral("downloadFile returned %1 after %2 ms; the file arrives in the background")
                 .arg(codeText(code))
                 .arg(returnedAfter));
    const qint64 size = qint64(wanted.value(QStringLiteral("size")).toDouble());
    const bool arrived = code == NubraCommon::Success && waitUntil([&] {
        return clientError >= 0
            || (QFileInfo(target).size() == size && !QFileInfo::exists(target + QStringLiteral(".part")));
    }, 60000);
    HelperLog::setListener(nullptr);
    bar->finish(arrived && clientError < 0 ? QStringLiteral("done") : QStringLiteral("failed"));
    if (code != NubraCommon::Success)
        return expectCode(step, code, NubraCommon::Success, QStringLiteral("not accepted"));
    if (!arrived || clientError >= 0)
        return failStep(step, QStringLiteral("the file did not arrive (client error %1)").arg(clientError));
    if (sha256Of(target) != wanted.value(QStringLiteral("sha256")).toString().toLatin1())
        return failStep(step, QStringLiteral("the file arrived with the wrong SHA-256"));
    return expectCode(step, code, NubraCommon::Success,
                      QStringLiteral("%1 arrived complete (SHA-256 checked) %2 ms after the call returned")
                          .arg(ProgressBar::formatBytes(size))
                          .arg(elapsed.elapsed() - returnedAfter));
}

} // namespace Demo

#endif
