// The general catalogue end to end: helper -> nubra client -> devcloud.

#include <VornNubraHelper.h>

#include <gtest/gtest.h>

using NubraCommon::Interface;

namespace {

VornNubraHelper* helper() { return VornNubraHelper::getInstance(); }

QString signIn()
{
    QVariantMap result;
    const auto code = helper()->post(Interface::UserLogin,
                                     {{"account", "demo@vorn.example"}, {"password", "scan3d!"}}, result, {}, 10000);
    EXPECT_EQ(code, NubraCommon::Success) << result.value("message").toString().toStdString();
    return result.value("token").toString();
}

} // namespace

TEST(GeneralCatalogue, signInThenReadOwnProfile)
{
    const QString token = signIn();
    ASSERT_FALSE(token.isEmpty());
    helper()->setUserToken(token);
    QVariantMap result;
    EXPECT_EQ(helper()->post(Interface::GetUserProfile, {{"userID", 1001}}, result, {}, 10000), NubraCommon::Success);
    EXPECT_EQ(result.value("account").toString(), "demo@vorn.example");
    EXPECT_FALSE(result.value("devices").toList().isEmpty());
}
