// SPDX-License-Identifier: MIT
// Catalogue names resolve to the helper's enumerator values.

#include "InterfaceNames.h"
#include "ResultCodes.h"

#include <NubraCommon.h>

#include <gtest/gtest.h>

using InterfaceNames::Catalogue;

TEST(InterfaceNames, namesRequestNamesAndNumbersResolve)
{
    struct Case {
        Catalogue catalogue;
        const char* text;
        bool allowUnlisted;
        std::optional<int> expected;
    };
    const QList<Case> cases{
        {Catalogue::General, "GetUserProfile", false, int(NubraCommon::Interface::GetUserProfile)},
        {Catalogue::General, "getuserprofile", false, int(NubraCommon::Interface::GetUserProfile)},
        {Catalogue::General, "AuthToken", false, 17},
        {Catalogue::General, "14", false, int(NubraCommon::Interface::UserLogin)},
        {Catalogue::General, "7", false, std::nullopt},
        {Catalogue::General, "7", true, 7},            // the helper itself answers UnknownInterface
        {Catalogue::General, "300", true, std::nullopt}, // not an 8-bit value
        {Catalogue::General, "Captcha", true, std::nullopt},
        {Catalogue::UserAccount, "Captcha", false, int(NubraCommon::VornUserAccountInterface::Captcha)},
        {Catalogue::UserAccount, "FetchCountries", false, 4}, // same request, other number than general
        {Catalogue::UserAccount, "2", true, 2},
        {Catalogue::UserAccount, "2", false, std::nullopt},
        {Catalogue::CloudDisk, "startUpload:start", false, int(NubraCommon::VornCloudDiskInterface::StartUploadStart)},
        {Catalogue::CloudDisk, "UploadCloudSpaceFile", false, 6},
        {Catalogue::CloudDisk, "GetUserProfile", false, 0},
        {Catalogue::CloudDisk, "", false, std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(InterfaceNames::resolve(c.catalogue, QString::fromLatin1(c.text), c.allowUnlisted), c.expected);
    }
}

TEST(InterfaceNames, generalTableMatchesTheHelpersCatalogue)
{
    // Every name vorn offers is an entry of the helper's own catalogue, with
    // the same request name.
    const auto catalogue = NubraCommon::createInterfaceMap();
    ASSERT_EQ(InterfaceNames::entries(Catalogue::General).size(), catalogue.size());
    for (const auto& entry : InterfaceNames::entries(Catalogue::General)) {
        const auto found = catalogue.find(NubraCommon::Interface(entry.value));
        ASSERT_NE(found, catalogue.end()) << entry.enumName;
        EXPECT_EQ(found->second.value("name").toString(), QString::fromLatin1(entry.requestName));
    }
}

TEST(ResultCodes, everyCodeHasItsNameAndOutsideValuesAreUnknown)
{
    const QList<QPair<int, const char*>> cases{
        {NubraCommon::Success, "Success"},           {NubraCommon::Timeout, "Timeout"},
        {NubraCommon::MissingField, "MissingField"}, {NubraCommon::TransportError, "TransportError"},
        {NubraCommon::PackageExists, "PackageExists"}, {13, "Unknown"}, {-1, "Unknown"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ResultCodes::name(c.first), QString::fromLatin1(c.second)) << c.first;
}
