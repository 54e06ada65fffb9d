#pragma once

#include <QVariantMap>

#include <cstdint>
#include <map>

namespace NubraCommon {

// Result of every blocking call of VornNubraHelper.
enum ErrorCode : std::int8_t {
    Success = 0,          // reply arrived with "status" "success"
    Timeout = 1,          // the call's time-out fired while it waited
    NoManager = 2,        // the helper has no cloud-client manager
    MissingField = 3,     // a key required by the template is absent from the body
    UnknownInterface = 4, // no such catalogue entry
    RequestRejected = 5,  // no reply, or the reply's status() was non-zero
    ResponseFailed = 6,   // reply arrived with another "status"; "result" still handed over
    TransportError = 7,   // the reply emitted errorOccurred
    SerializeFailed = 8,  // empty protected text, or the output file could not be opened
    SubscribeFailed = 9,  // the earlier subscription reported an error during the wait
    DownloadRunning = 10, // a software-package download is already running
    NoDownload = 11,      // pause requested while no download is held
    PackageExists = 12,   // at least one byte of the package is already on disk
};

// General requests, run by post/postv1/postv2/get.
enum class Interface : std::int8_t {
    FetchCountries = 0,
    GetUserProfile = 1,
    GetDeviceAction = 9,
    Upgrade = 11,
    RestoreScanFactorySettings = 13,
    UserLogin = 14,
    ParseScanPackage = 15,
    ListFAPackageInstance = 16,
    AuthToken = 17,
};

// User-account requests, run by VornUserAccountRequest.
enum class VornUserAccountInterface : std::int8_t {
    UserLogin = 0,
    UserCodeLogin = 1,
    FetchCountries = 4,
    IpCountry = 5,
    Captcha = 6,
    UserInfoValid = 7,
    GetOEMPrivacyColorInfoByTypeV2 = 8,
    FactoryPrivacyView = 9,
};

// Cloud-disk requests, run by VornCloudDiskRequest.
enum class VornCloudDiskInterface : std::int8_t {
    GetUserProfile = 0,
    FetchFrontSpace = 1,
    GetDefaultSpaceInfo = 2,
    SdkDynamicEncodeToken = 3,
    ChangeSpace = 4,
    StartUploadStart = 5,
    UploadCloudSpaceFile = 6,
    StartUploadRemoveAll = 7,
};

// The general catalogue: request name, auth marker, required body keys and
// params marker of every Interface value.
std::map<Interface, const QVariantMap> createInterfaceMap();

// {"name": "userLogin"}, shared by the general and user-account catalogues.
QVariantMap userLoginSource();

} // namespace NubraCommon
