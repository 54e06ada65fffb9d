// SPDX-License-Identifier: MIT
// The helper object: singleton access, construction and the plain getters
// and setters. The operations live in one file per service beside this one.

#include "VornNubraHelper.h"

#include "VornLog.h"

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QBasicMutex>
#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace {

enum class InstanceState { Uninitialised, Initialised, Destroyed };

std::atomic<InstanceState> g_state{InstanceState::Uninitialised};
VornNubraHelper* g_instance = nullptr;
QBasicMutex g_instanceMutex;
std::once_flag g_cleanupOnce;

// Every helper's manager is left to the end of the process on purpose.
// Keeping a pointer to it where leak checkers look (a never-destroyed global
// list) tells them so, together with whatever the manager still owns then.
void keepUntilProcessEnd(Nubra::Manager* manager)
{
    static auto* const kept = new std::vector<Nubra::Manager*>;
    kept->push_back(manager);
}

void destroyInstance()
{
    delete g_instance;
    g_instance = nullptr;
    g_state.store(InstanceState::Destroyed, std::memory_order_release);
}

} // namespace

VornNubraHelper* VornNubraHelper::getInstance()
{
    const InstanceState state = g_state.load(std::memory_order_acquire);
    if (state == InstanceState::Destroyed)
        return nullptr;
    if (state == InstanceState::Initialised)
        return g_instance;

    std::lock_guard<QBasicMutex> lock(g_instanceMutex);
    if (g_state.load(std::memory_order_relaxed) == InstanceState::Uninitialised) {
        // If the constructor throws, new releases the memory and the
        // exception leaves with the lock released by the guard.
        g_instance = new VornNubraHelper;
        std::call_once(g_cleanupOnce, [] { std::atexit(destroyInstance); });
        g_state.store(InstanceState::Initialised, std::memory_order_release);
    }
    return g_instance;
}

VornNubraHelper::VornNubraHelper()
    : VornNubraHelper(new Nubra::Manager(nullptr))
{
}

VornNubraHelper::VornNubraHelper(Nubra::Manager* manager)
    : QObject(nullptr)
    , m_manager(manager)
    // The placeholder token is kept for compatibility with applications built against this interface.
    , m_userToken(QStringLiteral("vqmpz"))
    , m_interfaceMap(NubraCommon::createInterfaceMap())
    , m_userAccountMap{
          {NubraCommon::VornUserAccountInterface::UserLogin, NubraCommon::userLoginSource()},
          {NubraCommon::VornUserAccountInterface::UserCodeLogin, {{QStringLiteral("name"), QStringLiteral("userCodeLogin")}}},
          {NubraCommon::VornUserAccountInterface::FetchCountries, {{QStringLiteral("name"), QStringLiteral("fetchCountries")}}},
          {NubraCommon::VornUserAccountInterface::IpCountry, {{QStringLiteral("name"), QStringLiteral("ipCountry")}}},
          {NubraCommon::VornUserAccountInterface::Captcha, {{QStringLiteral("name"), QStringLiteral("captcha")}}},
          {NubraCommon::VornUserAccountInterface::UserInfoValid, {{QStringLiteral("name"), QStringLiteral("userInfoValid")}}},
          {NubraCommon::VornUserAccountInterface::GetOEMPrivacyColorInfoByTypeV2,
           {{QStringLiteral("name"), QStringLiteral("getOEMPrivacyColorInfoByTypeV2")}}},
          {NubraCommon::VornUserAccountInterface::FactoryPrivacyView,
           {{QStringLiteral("name"), QStringLiteral("factoryPrivacyView")}}},
      }
    , m_cloudDiskMap{
          {NubraCommon::VornCloudDiskInterface::GetUserProfile, {{QStringLiteral("name"), QStringLiteral("getUserProfile")}}},
          {NubraCommon::VornCloudDiskInterface::FetchFrontSpace, {{QStringLiteral("name"), QStringLiteral("fetchFrontSpace")}}},
          {NubraCommon::VornCloudDiskInterface::GetDefaultSpaceInfo,
           {{QStringLiteral("name"), QStringLiteral("getDefaultSpaceInfo")}}},
          {NubraCommon::VornCloudDiskInterface::SdkDynamicEncodeToken,
           {{QStringLiteral("name"), QStringLiteral("sdkDynamicEncodeToken")}}},
          {NubraCommon::VornCloudDiskInterface::ChangeSpace, {{QStringLiteral("name"), QStringLiteral("changeSpace")}}},
          {NubraCommon::VornCloudDiskInterface::StartUploadStart, {{QStringLiteral("name"), QStringLiteral("startUpload:start")}}},
          // The capital U is kept for compatibility with applications built against this interface.
          {NubraCommon::VornCloudDiskInterface::UploadCloudSpaceFile,
           {{QStringLiteral("name"), QStringLiteral("UploadCloudSpaceFile")}}},
          {NubraCommon::VornCloudDiskInterface::StartUploadRemoveAll,
           {{QStringLiteral("name"), QStringLiteral("startUpload:removeAll")}}},
      }
{
    keepUntilProcessEnd(m_manager);

    const QVariantMap options{{QStringLiteral("timeout"), 30}};
    const QString path =
        QCoreApplication::applicationDirPath() + QString::fromUtf8("/../MacOS/NubraCfg/config/config.json");
    Nubra::Reply* configReply = m_manager->setConfigPath(path, options);
    // The client owns this reply; the handlers only report the outcome.
    connect(configReply, &Nubra::Reply::finished, m_manager, [](const QVariantMap& result) {
        if (result.value(QStringLiteral("status")).toString() == QLatin1String("success")) {
            VORN_LOG << "set NubraCfg Success";
        } else {
            VORN_LOG << "set NubraCfg error";
        }
    });
    connect(configReply, &Nubra::Reply::errorOccurred, m_manager,
            [](Nubra::Error::ErrorCode) { VORN_LOG << "set NubraCfg error"; });

    const QString hubFolder =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Kelmar Hub");
    const QString downloadFolder = QString(hubFolder) + QStringLiteral("/tarvodownload");
    if (!QDir(QString()).exists(downloadFolder))
        QDir(QString()).mkpath(downloadFolder);

    m_manager->configData();
    m_manager->productLineInformation(Nubra::Manager::HttpRequestSource(0));
}

// Members go in reverse declaration order; the shared reply pointers
// schedule their replies' deletion. The manager stays alive on purpose.
VornNubraHelper::~VornNubraHelper() = default;

QVariantMap VornNubraHelper::configData() const { return m_manager->configData(); }

QVariantMap VornNubraHelper::productLineInformation() const
{
    return m_manager->productLineInformation(Nubra::Manager::HttpRequestSource(0));
}

void VornNubraHelper::setUserToken(const QString& token) { m_userToken = token; }

void VornNubraHelper::setAppId(const QString& id) { m_appId = id; }
