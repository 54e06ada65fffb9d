// SPDX-License-Identifier: MIT
// The steps of vorn demo, in the order a new user meets the library. Each
// step says what it shows; the ones whose helper calls are not in this build
// are listed as skipped.

#include "DemoSteps.h"

#include "LocalCloud.h"
#include "Output.h"
#include "ResultCodes.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QStringList>

namespace Demo {

QString codeText(int code) { return QStringLiteral("%1 (%2)").arg(ResultCodes::name(code)).arg(code); }

Outcome expectCode(StepContext& step, int code, int expected, const QString& whatHappened)
{
    step.detail = QStringLiteral("%1; %2").arg(codeText(code), whatHappened);
    return code == expected ? Outcome::Passed : Outcome::Failed;
}

Outcome failStep(StepContext& step, const QString& reason)
{
    step.detail = reason;
    return Outcome::Failed;
}

namespace {

using NubraCommon::Interface;

const char* const kAccount = "demo@vorn.example";
const char* const kPassword = "scan3d!";

Outcome signIn(StepContext& step)
{
    QVariantMap result;
    const auto code = step.helper->post(Interface::UserLogin,
                                        {{QStringLiteral("account"), QString::fromLatin1(kAccount)},
                                         {QStringLiteral("password"), QString::fromLatin1(kPassword)}},
                                        result, {}, kCallTimeoutMs);
    const QString token = result.value(QStringLiteral("token")).toString();
    if (code != NubraCommon::Success || token.isEmpty())
        return expectCode(step, code, NubraCommon::Success, QStringLiteral("no token in the answer"));
    step.helper->setUserToken(token);
    step.shared.insert(QStringLiteral("token"), token);
    step.shared.insert(QStringLiteral("userID"), result.value(QStringLiteral("userID")));
    step.say(QStringLiteral("signed in as %1 (user %2)")
                 .arg(result.value(QStringLiteral("name")).toString(),
                      result.value(QStringLiteral("userID")).toString()));
    return expectCode(step, code, NubraCommon::Success,
                      QStringLiteral("token %1... is now sent as X-Auth-Token (setUserToken)").arg(token.left(8)));
}

Outcome profile(StepContext& step)
{
    QVariantMap result;
    const auto code = step.helper->post(Interface::GetUserProfile,
                                        {{QStringLiteral("userID"), step.shared.value(QStringLiteral("userID"))}},
                                        result, {}, kCallTimeoutMs);
    QStringList devices;
    for (const QVariant& device : result.value(QStringLiteral("devices")).toList())
        devices << QStringLiteral("%1 (%2)").arg(device.toMap().value(QStringLiteral("sn")).toString(),
                                                  device.toMap().value(QStringLiteral("modelCode")).toString());
    step.say(QStringLiteral("account %1, devices: %2")
                 .arg(result.value(QStringLiteral("account")).toString(), devices.join(QStringLiteral(", "))));
    return expectCode(step, code, NubraCommon::Success,
                      QStringLiteral("the profile of the signed-in user, %1 device(s)").arg(devices.size()));
}

Outcome missingField(StepContext& step)
{
    QVariantMap result;
    const auto code = step.helper->post(Interface::GetUserProfile, {}, result, {}, kCallTimeoutMs);
    return expectCode(step, code, NubraCommon::MissingField,
                      QStringLiteral("refused before anything was sent: \"userID\" is required"));
}

Outcome countries(StepContext& step)
{
    QVariantMap reply;
    const auto code = step.helper->get(Interface::FetchCountries, {}, reply, kCallTimeoutMs);
    const QVariantMap result = reply.value(QStringLiteral("result")).toMap();
    QStringList sample;
    const QVariantList list = result.value(QStringLiteral("countries")).toList();
    for (int i = 0; i < list.size() && i < 3; ++i)
        sample << list.at(i).toMap().value(QStringLiteral("name")).toString();
    if (code == NubraCommon::Success && list.isEmpty())
        return failStep(step, QStringLiteral("Success (0), but the country list is empty"));
    return expectCode(step, code, NubraCommon::Success,
                      QStringLiteral("%1 countries (%2, ...); get() hands back the whole reply map")
                          .arg(result.value(QStringLiteral("total")).toInt())
                          .arg(sample.join(QStringLiteral(", "))));
}


[[maybe_unused]] std::function<Outcome(StepContext&)> notBuilt() { return [](StepContext&) { return Outcome::Skipped; }; }

} // namespace

// A step's function when its calls are in this build; nothing otherwise.
#define VORN_STEP(enabled, function) bool(enabled), VORN_STEP_##enabled(function)
#if VORN_CLI_ACCOUNT
#define VORN_STEP_VORN_CLI_ACCOUNT(function) function
#else
#define VORN_STEP_VORN_CLI_ACCOUNT(function) notBuilt()
#endif
#if VORN_CLI_UPGRADE
#define VORN_STEP_VORN_CLI_UPGRADE(function) function
#else
#define VORN_STEP_VORN_CLI_UPGRADE(function) notBuilt()
#endif
#if VORN_CLI_SUBSCRIBE
#define VORN_STEP_VORN_CLI_SUBSCRIBE(function) function
#else
#define VORN_STEP_VORN_CLI_SUBSCRIBE(function) notBuilt()
#endif
#if VORN_CLI_PROTECT
#define VORN_STEP_VORN_CLI_PROTECT(function) function
#else
#define VORN_STEP_VORN_CLI_PROTECT(function) notBuilt()
#endif

std::vector<Step> librarySteps()
{
    return {
        {QStringLiteral("Sign in"),
         QStringLiteral("post(UserLogin, {account, password}) runs a request of the general catalogue and waits for "
                        "its answer in a local event loop; the token it returns is handed to setUserToken."),
         true, signIn},
        {QStringLiteral("Read the profile"),
         QStringLiteral("post(GetUserProfile, {userID}): the catalogue marks this request as needing the user token, "
                        "so the helper adds the X-Auth-Token header itself."),
         true, profile},
        {QStringLiteral("A request the helper refuses"),
         QStringLiteral("post(GetUserProfile, {}) without \"userID\": the catalogue lists the body keys a request "
                        "needs, and the helper answers MissingField without sending anything."),
         true, missingField},
        {QStringLiteral("Countries"),
         QStringLiteral("get(FetchCountries): the get variant returns the whole reply map (status and result)."),
         true, countries},
        {QStringLiteral("Captcha"),
         QStringLiteral("VornUserAccountRequest(Captcha): user-account requests run through the response watcher, "
                        "which reports every event of the reply to a callback."),
         VORN_STEP(VORN_CLI_ACCOUNT, captcha)},
        {QStringLiteral("Cloud-disk spaces"),
         QStringLiteral("VornCloudDiskRequest(FetchFrontSpace) and (GetDefaultSpaceInfo): the spaces of the user's "
                        "cloud disk."),
         VORN_STEP(VORN_CLI_ACCOUNT, spaces)},
        {QStringLiteral("Upload a file with progress"),
         QStringLiteral("VornCloudDiskRequest(StartUploadStart): the helper relays the upload's progress as its "
                        "uploadProgress signal."),
         VORN_STEP(VORN_CLI_ACCOUNT, upload)},
        {QStringLiteral("Register for upgrades and check"),
         QStringLiteral("setSoftwareAutoUpgrade tells the cloud client which model, version and language this is; "
                        "checkSoftwareUpgrade asks whether a newer version exists."),
         VORN_STEP(VORN_CLI_UPGRADE, upgradeCheck)},
        {QStringLiteral("Download the package, pause, resume"),
         QStringLiteral("startDownloadSoftware blocks while the package downloads, with downloadProgress signals; "
                        "pauseDownloadSoftware stops it, a second start resumes where it stopped, and "
                        "checkDownloadSoftwareExist finds it on disk."),
         VORN_STEP(VORN_CLI_UPGRADE, packageDownload)},
        {QStringLiteral("Subscribe and receive a message"),
         QStringLiteral("subscribe connects to the message server and subscribes a topic; a message the demo "
                        "publishes arrives as the helper's subscribeData signal."),
         VORN_STEP(VORN_CLI_SUBSCRIBE, subscription)},
        {QStringLiteral("Protect and restore a JSON object"),
         QStringLiteral("serializeObj turns a JSON object into protected text (AES-128 and base64); "
                        "deserializeData restores it."),
         VORN_STEP(VORN_CLI_PROTECT, protectJson)},
        {QStringLiteral("Download a file in the background"),
         QStringLiteral("downloadFile hands a download to the cloud client and returns at once; the file arrives "
                        "while the application goes on."),
         VORN_STEP(VORN_CLI_UPGRADE, fileDownload)},
    };
}

} // namespace Demo
