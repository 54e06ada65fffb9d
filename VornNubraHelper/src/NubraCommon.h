// SPDX-License-Identifier: MIT
#pragma once

#include "VornNubraHelperExport.h"

#include <QVariantMap>

#include <cstdint>
#include <map>

/// \file NubraCommon.h
/// Result codes and request catalogues of VornNubraHelper.

/// Result codes and request catalogues shared by the helper's calls.
namespace NubraCommon {

/// Result of the helper's calls. Each call's documentation lists the codes
/// it returns; the calls that return `int` return these values too.
enum ErrorCode : std::int8_t {
    Success = 0,          ///< The call did what it was asked; for a cloud request, the answer's "status" was "success".
    Timeout = 1,          ///< The call's time-out fired while it waited.
    NoManager = 2,        ///< The helper has no cloud-client manager; nothing was sent.
    MissingField = 3,     ///< A body key the catalogue entry requires is absent; nothing was sent.
    UnknownInterface = 4, ///< The value names no catalogue entry; nothing was sent.
    RequestRejected = 5,  ///< The cloud client refused to start the request (no reply, or a non-zero Nubra::Reply::status()).
    ResponseFailed = 6,   ///< The answer arrived with another "status"; its "result" is still handed over.
    TransportError = 7,   ///< The request failed on its way (the reply reported Nubra::Reply::errorOccurred()).
    SerializeFailed = 8,  ///< The protected text came out empty, or the output file could not be opened.
    SubscribeFailed = 9,  ///< The subscription held from an earlier call reported an error during the wait.
    DownloadRunning = 10, ///< A software-package download is already running.
    NoDownload = 11,      ///< A pause was asked for while no download is held.
    PackageExists = 12,   ///< At least one byte of the package is already on disk.
};

/// The general catalogue, run by VornNubraHelper::post(), postv1(), postv2()
/// and get(). Each value names one cloud request; the comment gives the
/// request name, whether the user token goes along as the "X-Auth-Token"
/// header (post, postv2 and get add it), and the body keys the call checks
/// before sending.
enum class Interface : std::int8_t {
    FetchCountries = 0,             ///< "fetchCountries"; no token, no required keys.
    GetUserProfile = 1,             ///< "getUserProfile"; token; requires "userID".
    GetDeviceAction = 9,            ///< "getDeviceAction"; no token; requires "sn".
    Upgrade = 11,                   ///< "upgrade"; no token; requires "checkModels", "checkModulars", "maxPtach", "modelCode", "osType", "versionType".
    RestoreScanFactorySettings = 13, ///< "restoreScanFactorySettings"; token; requires "sn".
    UserLogin = 14,                 ///< "userLogin"; no token, no required keys.
    ParseScanPackage = 15,          ///< "parseScanPackage"; token; requires "sn", "bucket", "dfsID".
    ListFAPackageInstance = 16,     ///< "listFAPackageInstance"; token; no required keys.
    AuthToken = 17,                 ///< "authToken"; no token; the caller's params map is sent as "params".
};

/// The user-account catalogue, run by VornNubraHelper::VornUserAccountRequest().
/// Each value names one cloud request; nothing is checked before sending.
enum class VornUserAccountInterface : std::int8_t {
    UserLogin = 0,                      ///< "userLogin".
    UserCodeLogin = 1,                  ///< "userCodeLogin".
    FetchCountries = 4,                 ///< "fetchCountries".
    IpCountry = 5,                      ///< "ipCountry".
    Captcha = 6,                        ///< "captcha".
    UserInfoValid = 7,                  ///< "userInfoValid".
    GetOEMPrivacyColorInfoByTypeV2 = 8, ///< "getOEMPrivacyColorInfoByTypeV2".
    FactoryPrivacyView = 9,             ///< "factoryPrivacyView".
};

/// The cloud-disk catalogue, run by VornNubraHelper::VornCloudDiskRequest().
enum class VornCloudDiskInterface : std::int8_t {
    GetUserProfile = 0,        ///< "getUserProfile".
    FetchFrontSpace = 1,       ///< "fetchFrontSpace".
    GetDefaultSpaceInfo = 2,   ///< "getDefaultSpaceInfo".
    SdkDynamicEncodeToken = 3, ///< "sdkDynamicEncodeToken".
    ChangeSpace = 4,           ///< "changeSpace".
    StartUploadStart = 5,      ///< "startUpload:start": starts the upload queue; sends the params map alone. The blocking call relays the progress as VornNubraHelper::uploadProgress().
    UploadCloudSpaceFile = 6,  ///< "UploadCloudSpaceFile": adds a file to the upload queue.
    StartUploadRemoveAll = 7,  ///< "startUpload:removeAll": empties the upload queue; sends the params map alone.
};

/// The general catalogue: for every Interface value a map with "name" (the
/// request name), "X-Auth-Token" when the user token goes along, "body"
/// (the required body keys) and "params" when the caller's params map is
/// sent. Returns a new map on every call; the caller owns it.
VORN_NUBRA_HELPER_EXPORT std::map<Interface, const QVariantMap> createInterfaceMap();

/// {"name": "userLogin"}, the entry shared by the general and user-account
/// catalogues.
VORN_NUBRA_HELPER_EXPORT QVariantMap userLoginSource();

} // namespace NubraCommon
