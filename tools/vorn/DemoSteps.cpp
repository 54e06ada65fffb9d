// The steps of vorn demo, in the order a new user meets the library. Each
// step says what it shows; the ones whose helper calls are not in this build
// are listed as skipped.

#include "Demo.h"

#include "LocalCloud.h"
#include "Output.h"
#include "ResultCodes.h"

#include <NubraCommon.h>
#include <VornNubraHelper.h>

#include <QStringList>

namespace Demo {

namespace {

using NubraCommon::Interface;

constexpr int kCallTimeoutMs = 10000;
const char* const kAccount = "demo@vorn.example";
const char* const kPassword = "scan3d!";

QString codeText(int code) { return QStringLiteral("%1 (%2)").arg(ResultCodes::name(code)).arg(code); }

Outcome expectCode(StepContext& step, int code, int expected, const QString& whatHappened)
{
    step.detail = QStringLiteral("%1; %2").arg(codeText(code), whatHappened);
    return code == expected ? Outcome::Passed : Outcome::Failed;
}

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
        return expectCode(step, code, NubraCommon::Success + 100, QStringLiteral("the country list is empty"));
    return expectCode(step, code, NubraCommon::Success,
                      QStringLiteral("%1 countries (%2, ...); get() hands back the whole reply map")
                          .arg(result.value(QStringLiteral("total")).toInt())
                          .arg(sample.join(QStringLiteral(", "))));
}

Outcome notBuilt(StepContext&) { return Outcome::Skipped; }

} // namespace

std::vector<Step> librarySteps()
{
    std::vector<Step> steps{
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
    };
    (void)notBuilt;
    return steps;
}

} // namespace Demo
