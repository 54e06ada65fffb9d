// SPDX-License-Identifier: MIT
// Demo steps of the user-account and cloud-disk calls: captcha, spaces and
// an upload with progress.

#include "DemoSteps.h"

#if VORN_CLI_ACCOUNT

#include "LocalCloud.h"
#include "ProgressBar.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QFile>
#include <QFileInfo>

namespace Demo {

namespace {

using NubraCommon::VornCloudDiskInterface;

const QString kSource = QStringLiteral("vorn-demo");

QVariantMap authHeaders(const StepContext& step)
{
    return {{QStringLiteral("X-Auth-Token"), step.shared.value(QStringLiteral("token"))}};
}

bool succeeded(const QVariantMap& reply)
{
    return reply.value(QStringLiteral("status")).toString() == QLatin1String("success");
}

QString failureOf(const QVariantMap& reply)
{
    if (reply.isEmpty())
        return QStringLiteral("no answer (the request could not start)");
    return QStringLiteral("status \"%1\": %2")
        .arg(reply.value(QStringLiteral("status")).toString(), reply.value(QStringLiteral("message")).toString());
}

// A file of pseudo-random bytes (the same each run), written in slices.
bool writeSampleFile(const QString& path, qint64 size)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    quint32 state = 20241122u;
    QByteArray slice(64 * 1024, Qt::Uninitialized);
    for (qint64 written = 0; written < size; written += slice.size()) {
        for (char& byte : slice) {
            state = state * 1664525u + 1013904223u;
            byte = char(state >> 24);
        }
        const qint64 count = qMin<qint64>(slice.size(), size - written);
        if (file.write(slice.constData(), count) != count)
            return false;
    }
    return true;
}

} // namespace

Outcome captcha(StepContext& step)
{
    QVariantMap reply;
    step.helper->VornUserAccountRequest(NubraCommon::VornUserAccountInterface::Captcha, reply, {}, {}, {}, QString(),
                                        kSource);
    if (!succeeded(reply))
        return failStep(step, failureOf(reply));
    const QVariantMap result = reply.value(QStringLiteral("result")).toMap();
    const QByteArray image = QByteArray::fromBase64(result.value(QStringLiteral("image")).toByteArray());
    if (!image.startsWith("\x89PNG\r\n\x1a\n"))
        return failStep(step, QStringLiteral("the captcha image is not a PNG"));
    step.say(QStringLiteral("captcha %1: a %2x%3 PNG of %4 bytes with %5 characters, valid for %6 s")
                 .arg(result.value(QStringLiteral("captchaId")).toString().left(12))
                 .arg(result.value(QStringLiteral("width")).toInt())
                 .arg(result.value(QStringLiteral("height")).toInt())
                 .arg(image.size())
                 .arg(result.value(QStringLiteral("length")).toInt())
                 .arg(result.value(QStringLiteral("expiresIn")).toInt()));
    step.detail = QStringLiteral("the watcher's Finished event handed the reply map to the caller");
    return Outcome::Passed;
}

Outcome spaces(StepContext& step)
{
    QVariantMap front;
    step.helper->VornCloudDiskRequest(VornCloudDiskInterface::FetchFrontSpace, front, {}, {}, authHeaders(step),
                                      kSource);
    if (!succeeded(front))
        return failStep(step, QStringLiteral("fetchFrontSpace: ") + failureOf(front));
    const QVariantMap result = front.value(QStringLiteral("result")).toMap();
    for (const QVariant& entry : result.value(QStringLiteral("spaces")).toList()) {
        const QVariantMap space = entry.toMap();
        step.say(QStringLiteral("space %1 \"%2\": %3 used of %4")
                     .arg(space.value(QStringLiteral("spaceId")).toString(), space.value(QStringLiteral("name")).toString(),
                          ProgressBar::formatBytes(space.value(QStringLiteral("usedBytes")).toLongLong()),
                          ProgressBar::formatBytes(space.value(QStringLiteral("quotaBytes")).toLongLong())));
    }
    QVariantMap defaults;
    step.helper->VornCloudDiskRequest(VornCloudDiskInterface::GetDefaultSpaceInfo, defaults, {}, {},
                                      authHeaders(step), kSource);
    if (!succeeded(defaults))
        return failStep(step, QStringLiteral("getDefaultSpaceInfo: ") + failureOf(defaults));
    const QVariantMap frontSpace = result.value(QStringLiteral("frontSpace")).toMap();
    step.shared.insert(QStringLiteral("spaceId"), frontSpace.value(QStringLiteral("spaceId")));
    step.detail = QStringLiteral("front space %1 \"%2\"; the disk calls take the user token as a header")
                      .arg(frontSpace.value(QStringLiteral("spaceId")).toString(),
                           frontSpace.value(QStringLiteral("name")).toString());
    return Outcome::Passed;
}

Outcome upload(StepContext& step)
{
    const QString path = step.cloud->workPath() + QStringLiteral("/scan-0001.vscan");
    const qint64 size = 6 * 1024 * 1024 + 321;
    if (!writeSampleFile(path, size))
        return failStep(step, QStringLiteral("cannot write the sample file %1").arg(path));

    QVariantMap tokenReply;
    step.helper->VornCloudDiskRequest(VornCloudDiskInterface::SdkDynamicEncodeToken, tokenReply,
                                      {{QStringLiteral("spaceId"), step.shared.value(QStringLiteral("spaceId"))}}, {},
                                      authHeaders(step), kSource);
    if (!succeeded(tokenReply))
        return failStep(step, QStringLiteral("sdkDynamicEncodeToken: ") + failureOf(tokenReply));
    const QVariantMap token = tokenReply.value(QStringLiteral("result")).toMap();
    step.say(QStringLiteral("upload token for space %1, valid %2 s")
                 .arg(token.value(QStringLiteral("spaceId")).toString(), token.value(QStringLiteral("expiresIn")).toString()));

    QVariantMap queued;
    step.helper->VornCloudDiskRequest(VornCloudDiskInterface::UploadCloudSpaceFile, queued, {},
                                      {{QStringLiteral("files"), QStringList{path}},
                                       {QStringLiteral("uploadToken"), token.value(QStringLiteral("uploadToken"))}},
                                      {}, kSource);
    if (!succeeded(queued))
        return failStep(step, QStringLiteral("UploadCloudSpaceFile: ") + failureOf(queued));

    auto bar = step.progress(QFileInfo(path).fileName());
    qint64 lastSent = 0;
    const QMetaObject::Connection progress = QObject::connect(
        step.helper, &VornNubraHelper::uploadProgress, [&](qint64 sent, qint64 total) {
            lastSent = sent;
            bar->update(sent, total);
        });
    QVariantMap reply;
    step.helper->VornCloudDiskRequest(VornCloudDiskInterface::StartUploadStart, reply, {}, {}, {}, kSource);
    QObject::disconnect(progress);
    bar->finish(QString());
    if (!succeeded(reply))
        return failStep(step, QStringLiteral("startUpload:start: ") + failureOf(reply));
    const QVariantMap result = reply.value(QStringLiteral("result")).toMap();
    const QVariantMap file = result.value(QStringLiteral("files")).toList().value(0).toMap();
    if (file.value(QStringLiteral("status")).toString() != QLatin1String("uploaded") || lastSent != size)
        return failStep(step, QStringLiteral("file status \"%1\", %2 of %3 bytes reported")
                                  .arg(file.value(QStringLiteral("status")).toString())
                                  .arg(lastSent)
                                  .arg(size));
    step.detail = QStringLiteral("%1 uploaded (%2, SHA-256 %3...), progress relayed as uploadProgress")
                      .arg(file.value(QStringLiteral("name")).toString(), ProgressBar::formatBytes(size),
                           file.value(QStringLiteral("sha256")).toString().left(12));
    return Outcome::Passed;
}

} // namespace Demo

#endif
