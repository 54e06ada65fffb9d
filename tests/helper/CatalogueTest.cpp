// SPDX-License-Identifier: MIT
// The three request catalogues as the helper holds them.

#include "HelperTestSupport.h"

#include <gtest/gtest.h>

using NubraCommon::Interface;
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
        // Markers are empty strings, not null ones (QString compares the two
        // equal; QVariant::isNull and QString::isNull tell them apart), and
        // "body" is a list of string variants.
        for (const QString& marker : {token, params}) {
            if (it->second.contains(marker)) {
                const QVariant value = it->second.value(marker);
                EXPECT_EQ(value.userType(), QMetaType::QString);
                EXPECT_TRUE(value.toString().isEmpty());
                EXPECT_FALSE(value.isNull()) << qPrintable(marker);
                EXPECT_FALSE(value.toString().isNull()) << qPrintable(marker);
            }
        }
        if (it->second.contains(body)) {
            EXPECT_EQ(it->second.value(body).userType(), QMetaType::QVariantList);
            for (const QVariant& key : it->second.value(body).toList())
                EXPECT_EQ(key.userType(), QMetaType::QString);
        }
    }
    for (int absent : {-128, -1, 2, 7, 8, 10, 12, 18, 127})
        EXPECT_EQ(map.count(Interface(absent)), 0u) << absent;
}

TEST(Catalogue, helperHoldsTheThreeCatalogues)
{
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    const auto& general = VornNubraHelperTestAccess::interfaceMap(helper);
    const auto& account = VornNubraHelperTestAccess::userAccountMap(helper);
    const auto& disk = VornNubraHelperTestAccess::cloudDiskMap(helper);
    EXPECT_EQ(general, NubraCommon::createInterfaceMap());

    // The account and disk entries (value -> request name) are checked by
    // what the helper sends, in AccountDiskRequestsTest.
    EXPECT_EQ(account.size(), 8u);
    EXPECT_EQ(disk.size(), 8u);

    // The shared sign-in template: equal copies in both catalogues.
    EXPECT_EQ(general.at(Interface::UserLogin), NubraCommon::userLoginSource());
    EXPECT_EQ(account.at(VornUserAccountInterface::UserLogin), NubraCommon::userLoginSource());
}
