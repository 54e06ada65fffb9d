// SPDX-License-Identifier: MIT
#include "NubraCommon.h"

#include <QStringList>
#include <QVariantList>

namespace NubraCommon {

namespace {

QVariant keyList(std::initializer_list<const char*> keys)
{
    QVariantList list;
    for (const char* key : keys)
        list.append(QString::fromLatin1(key));
    return list;
}

} // namespace

QVariantMap userLoginSource()
{
    return QVariantMap{{QStringLiteral("name"), QStringLiteral("userLogin")}};
}

std::map<Interface, const QVariantMap> createInterfaceMap()
{
    const QString name = QStringLiteral("name");
    const QString token = QStringLiteral("X-Auth-Token");
    const QString body = QStringLiteral("body");
    const QString params = QStringLiteral("params");
    // Marker values are empty strings, not null ones: kept for compatibility
    // with applications built against this interface (a null string would
    // make QVariant::isNull true for them).
    const QString marker = QString::fromLatin1("");

    // "maxPtach" is the key the cloud's upgrade request really checks; it is
    // not a typo to fix here: kept for compatibility with applications built
    // against this interface.
    return {
        {Interface::FetchCountries, {{name, QStringLiteral("fetchCountries")}}},
        {Interface::GetUserProfile,
         {{name, QStringLiteral("getUserProfile")}, {token, marker}, {body, keyList({"userID"})}}},
        {Interface::GetDeviceAction, {{name, QStringLiteral("getDeviceAction")}, {body, keyList({"sn"})}}},
        {Interface::Upgrade,
         {{name, QStringLiteral("upgrade")},
          {body, keyList({"checkModels", "checkModulars", "maxPtach", "modelCode", "osType", "versionType"})}}},
        {Interface::RestoreScanFactorySettings,
         {{name, QStringLiteral("restoreScanFactorySettings")}, {token, marker}, {body, keyList({"sn"})}}},
        {Interface::UserLogin, userLoginSource()},
        {Interface::ParseScanPackage,
         {{name, QStringLiteral("parseScanPackage")},
          {token, marker},
          {body, keyList({"sn", "bucket", "dfsID"})}}},
        {Interface::ListFAPackageInstance, {{name, QStringLiteral("listFAPackageInstance")}, {token, marker}}},
        {Interface::AuthToken, {{name, QStringLiteral("authToken")}, {params, marker}}},
    };
}

} // namespace NubraCommon
