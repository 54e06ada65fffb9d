// SPDX-License-Identifier: MIT
// The general catalogue end to end: helper -> nubra client -> devcloud,
// every entry, every fault the dev cloud can inject, and the token check.

#include <VornNubraHelper.h>

#include <gtest/gtest.h>

using NubraCommon::ErrorCode;
using NubraCommon::Interface;

namespace {

constexpr int kTimeoutMs = 10000;
const char* const kDemoDevice = "VS2024000123";

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }

QString signIn()
{
    QVariantMap result;
    const auto code = helper()->post(Interface::UserLogin,
                                     {{"account", "demo@vorn.example"}, {"password", "scan3d!"}}, result, {}, kTimeoutMs);
    EXPECT_EQ(code, NubraCommon::Success) << result.value("message").toString().toStdString();
    return result.value("token").toString();
}

class GeneralCatalogue : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(qgetenv("NUBRA_CONFIG").isEmpty()) << "run through ctest: the dev cloud fixture sets NUBRA_CONFIG";
        token = signIn();
        ASSERT_FALSE(token.isEmpty());
        helper()->setUserToken(token);
    }
    QString token;
};

} // namespace

// Each entry of the catalogue answers with a payload that fits the request.
TEST_F(GeneralCatalogue, everyEntryAnswers)
{
    struct Case {
        const char* what;
        Interface iface;
        QVariantMap body;
        QVariantMap params;
        std::function<void(const QVariantMap& result)> check;
    };
    const Case cases[] = {
        {"fetchCountries", Interface::FetchCountries, {}, {},
         [](const QVariantMap& r) {
             EXPECT_GT(r.value("total").toInt(), 200);
             bool germany = false;
             for (const QVariant& c : r.value("countries").toList())
                 germany = germany || (c.toMap().value("code") == "DE" && c.toMap().value("name") == "Germany");
             EXPECT_TRUE(germany);
         }},
        {"getUserProfile (the signed-in user's own)", Interface::GetUserProfile, {{"userID", 1001}}, {},
         [](const QVariantMap& r) {
             EXPECT_EQ(r.value("userID").toLongLong(), 1001);
             EXPECT_EQ(r.value("account").toString(), "demo@vorn.example");
             EXPECT_FALSE(r.value("devices").toList().isEmpty());
         }},
        {"getDeviceAction", Interface::GetDeviceAction, {{"sn", kDemoDevice}}, {},
         [](const QVariantMap& r) {
             EXPECT_EQ(r.value("sn").toString(), kDemoDevice);
             EXPECT_EQ(r.value("modelCode").toString(), "VS-200");
             EXPECT_TRUE(r.contains("action"));
         }},
        {"parseScanPackage", Interface::ParseScanPackage,
         {{"sn", kDemoDevice}, {"bucket", "scans-eu"}, {"dfsID", "dfs-7f3a9c01"}}, {},
         [](const QVariantMap& r) {
             EXPECT_EQ(r.value("name").toString(), "turbine-blade.vscan");
             EXPECT_GT(r.value("points").toLongLong(), 0);
         }},
        {"listFAPackageInstance", Interface::ListFAPackageInstance, {}, {},
         [](const QVariantMap& r) {
             EXPECT_EQ(r.value("total").toInt(), r.value("list").toList().size());
             EXPECT_GE(r.value("total").toInt(), 1);
         }},
        {"userLogin", Interface::UserLogin, {{"account", "alice@vorn.example"}, {"password", "alice-pass"}}, {},
         [](const QVariantMap& r) {
             EXPECT_FALSE(r.value("token").toString().isEmpty());
             EXPECT_EQ(r.value("userID").toLongLong(), 1002);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        QVariantMap result;
        EXPECT_EQ(int(helper()->post(c.iface, c.body, result, c.params, kTimeoutMs)), int(NubraCommon::Success))
            << result.value("message").toString().toStdString();
        c.check(result);
    }
}

// authToken: the token travels as a query parameter (params marker with
// post, the one map with get); get hands over the whole reply map.
TEST_F(GeneralCatalogue, authTokenChecksATokenFromSignIn)
{
    QVariantMap result;
    ASSERT_EQ(helper()->post(Interface::AuthToken, {}, result, {{"token", token}}, kTimeoutMs), NubraCommon::Success);
    EXPECT_TRUE(result.value("valid").toBool());
    EXPECT_EQ(result.value("userID").toLongLong(), 1001);

    QVariantMap whole;
    ASSERT_EQ(helper()->get(Interface::AuthToken, {{"token", "vqmpz"}}, whole, kTimeoutMs), NubraCommon::Success);
    EXPECT_EQ(whole.value("status").toString(), "success");
    EXPECT_FALSE(whole.value("result").toMap().value("valid").toBool());
}

// restoreScanFactorySettings is accepted for the owner and shows up as the
// device's next action.
TEST_F(GeneralCatalogue, restoreFactorySettingsBecomesTheDevicesAction)
{
    QVariantMap result;
    ASSERT_EQ(helper()->post(Interface::RestoreScanFactorySettings, {{"sn", "VS2024000456"}}, result, {}, kTimeoutMs),
              NubraCommon::Success);
    EXPECT_TRUE(result.value("accepted").toBool());
    const qint64 resets = result.value("factoryResets").toLongLong();
    EXPECT_GE(resets, 1);
    QVariantMap action;
    ASSERT_EQ(helper()->post(Interface::GetDeviceAction, {{"sn", "VS2024000456"}}, action, {}, kTimeoutMs),
              NubraCommon::Success);
    EXPECT_EQ(action.value("action").toString(), "restoreFactorySettings");
    EXPECT_EQ(action.value("factoryResets").toLongLong(), resets);

    // Someone else's device is refused by the server.
    QVariantMap foreign;
    EXPECT_EQ(helper()->post(Interface::RestoreScanFactorySettings, {{"sn", "VS2023009876"}}, foreign, {}, kTimeoutMs),
              NubraCommon::ResponseFailed);
}

// The placeholder token is refused with a failure status; the token from
// sign-in is accepted.
TEST_F(GeneralCatalogue, placeholderTokenRefusedSignedInTokenAccepted)
{
    struct Case {
        QString token;
        ErrorCode expected;
    };
    const Case cases[] = {{"vqmpz", NubraCommon::ResponseFailed},
                          {QString(), NubraCommon::ResponseFailed},
                          {"0123456789abcdef", NubraCommon::ResponseFailed},
                          {token, NubraCommon::Success}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.token.toStdString());
        helper()->setUserToken(c.token);
        QVariantMap result{{"untouched", true}};
        EXPECT_EQ(int(helper()->post(Interface::ListFAPackageInstance, {}, result, {}, kTimeoutMs)), int(c.expected));
        QVariantMap whole;
        EXPECT_EQ(int(helper()->get(Interface::ListFAPackageInstance, {}, whole, kTimeoutMs)), int(c.expected));
        if (c.expected != NubraCommon::Success) {
            EXPECT_EQ(whole.value("status").toString(), "failure");
        }
    }
}

// Every fault of the dev cloud through each call, as its result code.
TEST_F(GeneralCatalogue, faultsBecomeResultCodes)
{
    struct Case {
        const char* fault;
        int timeoutMs;
        ErrorCode expected;
    };
    const Case cases[] = {
        {"delay=1500", 300, NubraCommon::Timeout},
        {"failure", kTimeoutMs, NubraCommon::ResponseFailed},
        {"drop", kTimeoutMs, NubraCommon::TransportError},
        {"nonjson", kTimeoutMs, NubraCommon::TransportError},
        {"http=500", kTimeoutMs, NubraCommon::TransportError},
        {"http=404", kTimeoutMs, NubraCommon::TransportError},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.fault);
        const QVariantMap body{{"sn", kDemoDevice}, {"devcloudFault", c.fault}};
        QVariantMap result{{"untouched", true}};
        EXPECT_EQ(int(helper()->post(Interface::GetDeviceAction, body, result, {}, c.timeoutMs)), int(c.expected));
        if (c.expected != NubraCommon::ResponseFailed) {
            EXPECT_EQ(result, (QVariantMap{{"untouched", true}}));
        }

        QVariantMap viaHeader;
        EXPECT_EQ(int(helper()->postv1(Interface::GetDeviceAction, {{"X-Devcloud-Fault", c.fault}},
                                       {{"sn", kDemoDevice}}, viaHeader, {}, c.timeoutMs)),
                  int(c.expected));
        QVariant viaV2;
        EXPECT_EQ(int(helper()->postv2(Interface::GetDeviceAction, body, viaV2, {}, c.timeoutMs)), int(c.expected));
        QVariantMap viaGet;
        EXPECT_EQ(int(helper()->get(Interface::GetDeviceAction, body, viaGet, c.timeoutMs)), int(c.expected));
    }
    // A server that stays silent past the caller's time-out gives Timeout,
    // whatever the length: the client's transfer time-out, set from the same
    // value, must not end the call first as a transport error. Lengths on
    // both sides of the switch to a coarse timer at 2 s.
    for (const int timeoutMs : {1100, 2100}) {
        SCOPED_TRACE(timeoutMs);
        QVariantMap result{{"untouched", true}};
        EXPECT_EQ(int(helper()->post(Interface::GetDeviceAction, {{"sn", kDemoDevice}, {"devcloudFault", "delay=4000"}},
                                     result, {}, timeoutMs)),
                  int(NubraCommon::Timeout));
        EXPECT_EQ(result, (QVariantMap{{"untouched", true}}));
    }
    // And the cloud still answers normally afterwards.
    QVariantMap result;
    EXPECT_EQ(helper()->post(Interface::GetDeviceAction, {{"sn", kDemoDevice}}, result, {}, kTimeoutMs),
              NubraCommon::Success);
}
