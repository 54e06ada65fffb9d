// SPDX-License-Identifier: MIT
#include "InterfaceNames.h"

#include "Suggestions.h"

#include <NubraCommon.h>

namespace InterfaceNames {

namespace {

using NubraCommon::Interface;
using NubraCommon::VornCloudDiskInterface;
using NubraCommon::VornUserAccountInterface;

#define VORN_ENTRY(Enum, name, request) Entry{#name, request, int(Enum::name)}

const std::vector<Entry> kGeneral{
    VORN_ENTRY(Interface, FetchCountries, "fetchCountries"),
    VORN_ENTRY(Interface, GetUserProfile, "getUserProfile"),
    VORN_ENTRY(Interface, GetDeviceAction, "getDeviceAction"),
    VORN_ENTRY(Interface, Upgrade, "upgrade"),
    VORN_ENTRY(Interface, RestoreScanFactorySettings, "restoreScanFactorySettings"),
    VORN_ENTRY(Interface, UserLogin, "userLogin"),
    VORN_ENTRY(Interface, ParseScanPackage, "parseScanPackage"),
    VORN_ENTRY(Interface, ListFAPackageInstance, "listFAPackageInstance"),
    VORN_ENTRY(Interface, AuthToken, "authToken"),
};

const std::vector<Entry> kUserAccount{
    VORN_ENTRY(VornUserAccountInterface, UserLogin, "userLogin"),
    VORN_ENTRY(VornUserAccountInterface, UserCodeLogin, "userCodeLogin"),
    VORN_ENTRY(VornUserAccountInterface, FetchCountries, "fetchCountries"),
    VORN_ENTRY(VornUserAccountInterface, IpCountry, "ipCountry"),
    VORN_ENTRY(VornUserAccountInterface, Captcha, "captcha"),
    VORN_ENTRY(VornUserAccountInterface, UserInfoValid, "userInfoValid"),
    VORN_ENTRY(VornUserAccountInterface, GetOEMPrivacyColorInfoByTypeV2, "getOEMPrivacyColorInfoByTypeV2"),
    VORN_ENTRY(VornUserAccountInterface, FactoryPrivacyView, "factoryPrivacyView"),
};

const std::vector<Entry> kCloudDisk{
    VORN_ENTRY(VornCloudDiskInterface, GetUserProfile, "getUserProfile"),
    VORN_ENTRY(VornCloudDiskInterface, FetchFrontSpace, "fetchFrontSpace"),
    VORN_ENTRY(VornCloudDiskInterface, GetDefaultSpaceInfo, "getDefaultSpaceInfo"),
    VORN_ENTRY(VornCloudDiskInterface, SdkDynamicEncodeToken, "sdkDynamicEncodeToken"),
    VORN_ENTRY(VornCloudDiskInterface, ChangeSpace, "changeSpace"),
    VORN_ENTRY(VornCloudDiskInterface, StartUploadStart, "startUpload:start"),
    VORN_ENTRY(VornCloudDiskInterface, UploadCloudSpaceFile, "UploadCloudSpaceFile"),
    VORN_ENTRY(VornCloudDiskInterface, StartUploadRemoveAll, "startUpload:removeAll"),
};

#undef VORN_ENTRY

struct CatalogueInfo {
    const char* name;
    const std::vector<Entry>* entries;
};

// In the order of the Catalogue enumerators.
const CatalogueInfo& infoOf(Catalogue catalogue)
{
    static const CatalogueInfo infos[] = {
        {"general", &kGeneral}, {"user-account", &kUserAccount}, {"cloud-disk", &kCloudDisk}};
    return infos[int(catalogue)];
}

const Entry* find(Catalogue catalogue, int value)
{
    for (const Entry& entry : entries(catalogue)) {
        if (entry.value == value)
            return &entry;
    }
    return nullptr;
}

} // namespace

const std::vector<Entry>& entries(Catalogue catalogue) { return *infoOf(catalogue).entries; }

std::optional<int> resolve(Catalogue catalogue, const QString& text, bool allowUnlisted)
{
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    if (isNumber) {
        // The enumerations are signed 8-bit.
        if (number < -128 || number > 127)
            return std::nullopt;
        if (find(catalogue, number) || allowUnlisted)
            return number;
        return std::nullopt;
    }
    for (const Entry& entry : entries(catalogue)) {
        if (text.compare(QLatin1String(entry.enumName), Qt::CaseInsensitive) == 0
            || text.compare(QLatin1String(entry.requestName), Qt::CaseInsensitive) == 0)
            return entry.value;
    }
    return std::nullopt;
}

QString describe(Catalogue catalogue, int value)
{
    const Entry* entry = find(catalogue, value);
    if (!entry)
        return QStringLiteral("#%1").arg(value);
    return QStringLiteral("%1 (%2)").arg(QLatin1String(entry->enumName), QLatin1String(entry->requestName));
}

QString requestName(Catalogue catalogue, int value)
{
    const Entry* entry = find(catalogue, value);
    return entry ? QString::fromLatin1(entry->requestName) : QStringLiteral("#%1").arg(value);
}

QString knownNames(Catalogue catalogue)
{
    QStringList names;
    for (const Entry& entry : entries(catalogue))
        names << QString::fromLatin1(entry.enumName);
    return names.join(QStringLiteral(", "));
}

QStringList allNames(Catalogue catalogue)
{
    QStringList names;
    for (const Entry& entry : entries(catalogue))
        names << QString::fromLatin1(entry.enumName) << QString::fromLatin1(entry.requestName);
    return names;
}

QString catalogueName(Catalogue catalogue) { return QString::fromLatin1(infoOf(catalogue).name); }

QString unknownMessage(Catalogue catalogue, const QString& name)
{
    const QString suggestion = Suggestions::didYouMean(name, allNames(catalogue));
    if (!suggestion.isEmpty())
        return QStringLiteral("unknown interface '%1'%2; 'vorn interfaces' lists the %3 catalogue")
            .arg(name, suggestion, catalogueName(catalogue));
    return QStringLiteral("unknown interface '%1': the %2 catalogue has %3 (names, request names or numbers; see "
                          "'vorn interfaces')")
        .arg(name, catalogueName(catalogue), knownNames(catalogue));
}

} // namespace InterfaceNames
