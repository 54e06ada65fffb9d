#pragma once

#include "NubraCommon.h"
#include "VornNubraHelperRespWatcher.h"

#include <QJsonObject>
#include <QList>
#include <QMetaObject>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <map>
#include <string>

namespace Nubra {
class Manager;
class Reply;
}

// The application's one entry point to the cloud.
//
// - A process-wide singleton: getInstance() creates it on first use, on the
//   calling thread (the GUI thread), and returns null once it was destroyed
//   at process exit.
// - Every operation is to be called on that thread. Blocking calls wait in a
//   local event loop: timers, network and (depending on the call) user input
//   keep running, so other code, including other helper calls, can run
//   before a blocking call returns. Nothing is locked.
// - Results come back as NubraCommon::ErrorCode values; out-arguments are
//   left as they were on failure unless the call says otherwise.
class VornNubraHelper : public QObject {
    Q_OBJECT
public:
    static VornNubraHelper* getInstance();

    VornNubraHelper();
    ~VornNubraHelper() override;

    QVariantMap configData() const;
    QVariantMap productLineInformation() const;
    void setUserToken(const QString& token);
    void setAppId(const QString& id);

    // Catalogue calls; timeout in milliseconds.
    NubraCommon::ErrorCode post(const NubraCommon::Interface& interface, QVariantMap body, QVariantMap& result,
                                QVariantMap params, int timeout);
    NubraCommon::ErrorCode postv1(const NubraCommon::Interface& interface, QVariantMap headers, QVariantMap body,
                                  QVariantMap& result, QVariantMap params, int timeout);
    NubraCommon::ErrorCode postv2(const NubraCommon::Interface& interface, QVariantMap body, QVariant& result,
                                  QVariantMap params, int timeout);
    NubraCommon::ErrorCode get(const NubraCommon::Interface& interface, QVariantMap params, QVariantMap& result,
                               int timeout);

    // User-account requests.
    void VornUserAccountRequest(NubraCommon::VornUserAccountInterface iface, QVariantMap& result, QVariantMap body,
                                QVariantMap params, QVariantMap headers, QString extra, QString source);
    VornNubraHelperRespWatcher VornUserAccountRequest(NubraCommon::VornUserAccountInterface iface, QVariantMap body,
                                                      QVariantMap params, QVariantMap headers, QString extra,
                                                      QString source);

    // Cloud-disk requests.
    void VornCloudDiskRequest(NubraCommon::VornCloudDiskInterface iface, QVariantMap& result, QVariantMap body,
                              QVariantMap params, QVariantMap headers, QString source);
    VornNubraHelperRespWatcher VornCloudDiskRequest(NubraCommon::VornCloudDiskInterface iface, QVariantMap body,
                                                    QVariantMap params, QVariantMap headers, QString source);

    // Message subscription.
    int subscribe(const QString& userName, const QString& reserved, const QList<QVariant>& topics, int timeoutMs);
    int disconnectFromServer();

    // Automatic upgrade.
    NubraCommon::ErrorCode setSoftwareAutoUpgrade(const QString& modelCode, const QString& version,
                                                  const QString& versionType, const QString& langType,
                                                  const QString& path);
    NubraCommon::ErrorCode checkSoftwareUpgrade(const QString& modelCode, QVariantMap& upgradeInfo);
    NubraCommon::ErrorCode startDownloadSoftware(const QString& modelCode, const QString& version);
    NubraCommon::ErrorCode pauseDownloadSoftware();
    NubraCommon::ErrorCode checkDownloadSoftwareExist(const QString& modelCode, const QString& version);

    // File download; returns at once.
    NubraCommon::ErrorCode downloadFile(const QString& url, const QString& path);

    // Protected data.
    int serializeObj(QJsonObject object, QString& result);
    int serializeFile(QString content, QString filePath);
    int serializeData(const QString& content, QString& result);
    int serializeData(QJsonObject object, QString filePath);
    int deserializeData(QString protectedText, QString& result);
    int deserializeData(const QString& protectedText, const QString& key, QString& result);
    std::string deBase64(const std::string& text);

signals:
    void subscribeData(QString topic, QVariantMap params);
    void uploadProgress(qint64 bytesSent, qint64 bytesTotal);
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void downloadSuccess();
    void downloadFail();
    void quitDownloadLoop();

private:
    friend class VornNubraHelperRespWatcher;
    friend class VornNubraHelperTestAccess; // tests only: reach m_manager

    Nubra::Manager* m_manager = nullptr;
    QString m_userToken;
    QString m_appId;
    bool m_upgradeConfigured = false;
    bool m_serverConnected = false;
    bool m_downloadLoopEnded = true;
    QSharedPointer<Nubra::Reply> m_downloadReply;
    QSharedPointer<Nubra::Reply> m_connectReply;
    QMetaObject::Connection m_spareConnection;
    QMetaObject::Connection m_abortConnection;
    QSharedPointer<Nubra::Reply> m_subscribeReply;
    std::map<NubraCommon::Interface, const QVariantMap> m_interfaceMap;
    std::map<NubraCommon::VornUserAccountInterface, const QVariantMap> m_userAccountMap;
    std::map<NubraCommon::VornCloudDiskInterface, const QVariantMap> m_cloudDiskMap;
};
