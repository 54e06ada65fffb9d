// The three request catalogues as the helper holds them.

#include "HelperTestSupport.h"

#include <gtest/gtest.h>

#include <stdexcept>

using NubraCommon::Interface;
using NubraCommon::VornCloudDiskInterface;
using NubraCommon::VornUserAccountInterface;

namespace {
QVariant keys(const QStringList& list)
{
    QVariantList out;
    for (const QString& k : list)
        out << k;
    return out;
}
} // namespace

TEST(Catalogue, generalEntries)
{
    const QString token = "X-Auth-Token", body = "body", params = "params";
    struct Case {
        int value;
        QVariantMap templ;
    };
    const Case cases[] = {
        {0, {{"name", "fetchCountries"}}},
        {1, {{"name", "getUserProfile"}, {token, QString()}, {body, keys({"userID"})}}},
        {9, {{"name", "getDeviceAction"}, {body, keys({"sn"})}}},
        {11,
         {{"name", "upgrade"},
          {body, keys({"checkModels", "checkModulars", "maxPtach", "modelCode", "osType", "versionType"})}}},
        {13, {{"name", "restoreScanFactorySettings"}, {token, QString()}, {body, keys({"sn"})}}},
        {14, {{"name", "userLogin"}}},
        {15, {{"name", "parseScanPackage"}, {token, QString()}, {body, keys({"sn", "bucket", "dfsID"})}}},
        {16, {{"name", "listFAPackageInstance"}, {token, QString()}}},
        {17, {{"name", "authToken"}, {params, QString()}}},
    };
    const auto map = NubraCommon::createInterfaceMap();
    ASSERT_EQ(map.size(), std::size(cases));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value);
        const auto it = map.find(Interface(c.value));
        ASSERT_NE(it, map.end());
        EXPECT_EQ(it->second, c.templ);
        // Markers are strings, and "body" is a list of string variants.
        for (const QString& marker : {token, params}) {
            if (it->second.contains(marker)) {
                EXPECT_EQ(it->second.value(marker).type(), QVariant::String);
            }
        }
        if (it->second.contains(body)) {
            EXPECT_EQ(it->second.value(body).type(), QVariant::List);
            for (const QVariant& key : it->second.value(body).toList())
                EXPECT_EQ(key.type(), QVariant::String);
        }
    }
    for (int absent : {-128, -1, 2, 7, 8, 10, 12, 18, 127})
        EXPECT_EQ(map.count(Interface(absent)), 0u) << absent;
}

TEST(Catalogue, helperHoldsTheThreeCatalogues)
{
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    const auto& general = VornNubraHelperTestAccess::interfaceMap(*helper);
    const auto& account = VornNubraHelperTestAccess::userAccountMap(*helper);
    const auto& disk = VornNubraHelperTestAccess::cloudDiskMap(*helper);
    EXPECT_EQ(general, NubraCommon::createInterfaceMap());

    const std::pair<int, const char*> accountNames[] = {
        {0, "userLogin"}, {1, "userCodeLogin"}, {4, "fetchCountries"}, {5, "ipCountry"}, {6, "captcha"},
        {7, "userInfoValid"}, {8, "getOEMPrivacyColorInfoByTypeV2"}, {9, "factoryPrivacyView"}};
    ASSERT_EQ(account.size(), std::size(accountNames));
    for (const auto& [value, name] : accountNames)
        EXPECT_EQ(account.at(VornUserAccountInterface(value)), (QVariantMap{{"name", name}})) << value;

    const std::pair<int, const char*> diskNames[] = {
        {0, "getUserProfile"}, {1, "fetchFrontSpace"}, {2, "getDefaultSpaceInfo"}, {3, "sdkDynamicEncodeToken"},
        {4, "changeSpace"}, {5, "startUpload:start"}, {6, "UploadCloudSpaceFile"}, {7, "startUpload:removeAll"}};
    ASSERT_EQ(disk.size(), std::size(diskNames));
    for (const auto& [value, name] : diskNames)
        EXPECT_EQ(disk.at(VornCloudDiskInterface(value)), (QVariantMap{{"name", name}})) << value;

    // The shared sign-in template: equal copies in both catalogues.
    EXPECT_EQ(general.at(Interface::UserLogin), NubraCommon::userLoginSource());
    EXPECT_EQ(account.at(VornUserAccountInterface::UserLogin), NubraCommon::userLoginSource());

    // The checked lookup of the account and disk catalogues throws for
    // values that are not there.
    for (int absent : {2, 3, 10, -1}) {
        try {
            (void)account.at(VornUserAccountInterface(absent));
            ADD_FAILURE() << "no exception for " << absent;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "map::at");
        }
    }
    EXPECT_THROW((void)disk.at(VornCloudDiskInterface(8)), std::out_of_range);
}

// Templates are handed out by copy: changing a copy leaves the entry as it was.
TEST(Catalogue, copiesDoNotChangeTheCatalogue)
{
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    const auto& general = VornNubraHelperTestAccess::interfaceMap(*helper);
    QVariantMap copy = general.at(Interface::Upgrade);
    copy.insert("name", "changed");
    copy.remove("body");
    EXPECT_EQ(general.at(Interface::Upgrade).value("name").toString(), "upgrade");
    EXPECT_EQ(general.at(Interface::Upgrade).value("body").toStringList().at(2), "maxPtach");

    QVariantMap login = NubraCommon::userLoginSource();
    login.insert("extra", 1);
    EXPECT_EQ(NubraCommon::userLoginSource(), (QVariantMap{{"name", "userLogin"}}));
}
