// SPDX-License-Identifier: MIT
#pragma once

#include "NubraCommon.h"
#include "VornNubraHelperExport.h"
#include "VornNubraHelperRespWatcher.h"
#include "VornNubraHelperVersion.h"

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

/// \file VornNubraHelper.h
/// The helper object, VornNubraHelper. Including it also brings
/// NubraCommon.h, VornNubraHelperRespWatcher.h and VornNubraHelperVersion.h.

/// The application's one entry point to the cloud.
///
/// **One object, one thread.** getInstance() creates the helper on first use,
/// on the calling thread, which should be the GUI thread; every member is to
/// be called on that thread (the protected-data calls excepted). The library
/// owns the helper and deletes it at process exit; never delete it yourself.
///
/// **Blocking calls wait in a local event loop.** A call that waits starts
/// its request, then runs a QEventLoop until the answer, a failure or its
/// time-out ends the wait. Timers, network traffic, queued signals and
/// posted events keep running meanwhile, so other code of the application,
/// including other helper calls, can run before the call returns: the wait
/// re-enters the caller's event loop and nothing is locked. Each call says
/// what happens to user input while it waits:
/// - *held back* (QEventLoop::ExcludeUserInputEvents): mouse and keyboard
///   events stay queued and are delivered after the call returns; a click
///   on a button during the wait runs its slot then.
/// - *processed* (QEventLoop::AllEvents): the user interface stays fully
///   usable; a click runs its slot during the wait, and that slot may call
///   the helper again.
///
/// **Results** come back as NubraCommon::ErrorCode values (as `int` for some
/// calls). An out-argument is written only on the paths its call names and
/// is left as it was on every other path. Nothing throws, except the one
/// documented case of VornUserAccountRequest().
///
/// **What is sent.** Every request goes through the cloud client
/// (Nubra::Manager), which reads its configuration from the file the
/// constructor names or from the file `NUBRA_CONFIG` names (see
/// docs/configuration.md). A request's answer is a map with "status"
/// ("success", "failure", ...) and "result".
///
/// **Logging.** The helper writes glog INFO records and Qt debug messages;
/// see docs/first-application.md for where they go and how to route or
/// silence them.
class VORN_NUBRA_HELPER_EXPORT VornNubraHelper : public QObject {
    Q_OBJECT
public:
    /// The process-wide helper, created on the first call (on the calling
    /// thread) and kept until process exit. Returns null once the helper was
    /// destroyed at process exit. The library owns the object.
    static VornNubraHelper* getInstance();

    /// Builds a helper; applications use getInstance() instead. Sets the
    /// user token to the placeholder "vqmpz", creates the cloud client's
    /// manager (owned by the helper and never deleted, so that replies still
    /// in flight at exit stay valid), hands it the configuration file
    /// "<application dir>/../MacOS/NubraCfg/config/config.json" (overridden
    /// by `NUBRA_CONFIG`) with a default request time-out of 30 s, and
    /// creates the download folder "Kelmar Hub/tarvodownload" under the
    /// generic data location. Does not wait for the configuration to load:
    /// it is read on the next turn of the event loop.
    VornNubraHelper();
    /// Releases the replies the helper holds (by deferred deletion); the
    /// manager stays alive on purpose.
    ~VornNubraHelper() override;

    /// The cloud client's current configuration (Nubra::Manager::configData()).
    QVariantMap configData() const;
    /// The product-line information of the configuration, for the default
    /// source (Nubra::Manager::productLineInformation()).
    QVariantMap productLineInformation() const;
    /// Sets the user token. It is sent as the "X-Auth-Token" header by the
    /// catalogue calls whose entry asks for it (post(), postv2(), get()), and
    /// as the message server's user name by subscribe(). Typically the token
    /// that NubraCommon::Interface::UserLogin returned.
    void setUserToken(const QString& token);
    /// Stores the application id. It is kept for the application's own use
    /// and sent with no request.
    void setAppId(const QString& id);

    /// Runs one request of the general catalogue and waits for its answer.
    ///
    /// Sends the entry's request name with the record {"headers":
    /// {"X-Auth-Token": user token} when the entry asks for the token,
    /// "params": `params` when the entry takes them, "body": `body`} and the
    /// option {"timeout": `timeout`} (the cloud client reads values below
    /// 1000 as seconds, others as milliseconds).
    ///
    /// Waits at most `timeout` milliseconds; user input is held back.
    ///
    /// Returns, checked in this order before anything is sent: NoManager;
    /// UnknownInterface for a value outside the catalogue; MissingField when
    /// `body` lacks a key the entry requires; RequestRejected when the
    /// client refuses the request. After the wait: Success with `result` set
    /// to the answer's "result" map; ResponseFailed when the answer's
    /// "status" is not "success", with `result` set the same way;
    /// TransportError (the request failed on its way) and Timeout leave
    /// `result` untouched. An answer that arrives after the wait ended is
    /// dropped: the reply is released when the call returns.
    NubraCommon::ErrorCode post(const NubraCommon::Interface& interface, QVariantMap body, QVariantMap& result,
                                QVariantMap params, int timeout);
    /// post() with the caller's own headers: `headers` is sent as the
    /// record's "headers" (left out when empty) and the user token is not
    /// added. Returns, waits and writes `result` as post() does.
    NubraCommon::ErrorCode postv1(const NubraCommon::Interface& interface, QVariantMap headers, QVariantMap body,
                                  QVariantMap& result, QVariantMap params, int timeout);
    /// post() for answers whose "result" is not a map: `result` receives the
    /// answer's "result" as it is (list, string, number, map). Sends, waits
    /// and returns as post() does.
    NubraCommon::ErrorCode postv2(const NubraCommon::Interface& interface, QVariantMap body, QVariant& result,
                                  QVariantMap params, int timeout);
    /// Runs one request of the general catalogue with the caller's one map.
    ///
    /// `params` is checked for the entry's required keys and sent as the
    /// record's "body" (for GET requests the client sends its entries as
    /// query parameters), with an empty "params" map, the user token as in
    /// post(), and no options, so the client's default time-out applies.
    /// Waits at most `timeout` milliseconds; user input is held back.
    ///
    /// Returns the codes of post(). On Success and ResponseFailed `result`
    /// receives the whole answer ("status", "result", ...); otherwise it is
    /// left untouched.
    NubraCommon::ErrorCode get(const NubraCommon::Interface& interface, QVariantMap params, QVariantMap& result,
                               int timeout);

    /// Runs one request of the user-account catalogue and waits for it.
    ///
    /// Sends the request the value names with the record {"headers":
    /// `headers`, "body": `body`, "params": `params`, "source": `source`}
    /// (the source travels as the "X-Nubra-Source" header) and no options.
    /// A non-empty `extra` names a region of the client's configuration
    /// whose base URL is used instead of the default one.
    ///
    /// Waits through a response watcher in Sync mode: no time-out of its
    /// own (the client's request time-out ends every request); user input
    /// is processed, so other code may run, and may call the helper,
    /// before this returns.
    ///
    /// `result` receives the answer map when the request finishes, also
    /// after a failure (then "status" is "failure" with "errorCode" and
    /// "message"); it becomes an empty map when the client refuses the
    /// request, and is left untouched when the helper has no manager.
    /// Throws std::out_of_range ("map::at:  key not found") for a value
    /// outside the catalogue, kept for compatibility with applications built
    /// against this interface.
    void VornUserAccountRequest(NubraCommon::VornUserAccountInterface iface, QVariantMap& result, QVariantMap body,
                                QVariantMap params, QVariantMap headers, QString extra, QString source);
    /// The same request as a response watcher: nothing is sent yet. The
    /// request goes out once, when the caller runs
    /// `watcher.onResp(name, callback).exec(mode)`, or, blocking and without
    /// a callback, when the watcher or its Exec is dropped unused. The
    /// watcher holds copies of the arguments; the caller owns it. The
    /// catalogue lookup happens when the request is sent, and throws
    /// std::out_of_range there for a value outside the catalogue.
    VornNubraHelperRespWatcher VornUserAccountRequest(NubraCommon::VornUserAccountInterface iface, QVariantMap body,
                                                      QVariantMap params, QVariantMap headers, QString extra,
                                                      QString source);

    /// Runs one request of the cloud-disk catalogue and waits for it.
    ///
    /// Sends the request the value names with the record {"headers",
    /// "body", "params", "source"} as VornUserAccountRequest() does, and no
    /// options; the upload-queue controls (StartUploadStart,
    /// StartUploadRemoveAll) send the `params` map alone with a 30 s
    /// time-out. While StartUploadStart waits, the queue's progress is
    /// relayed as uploadProgress().
    ///
    /// Waits with no time-out of its own (the client's ends every request);
    /// user input is held back.
    ///
    /// `result` receives the answer map when the request finishes, also
    /// after a failure (then "status" is "failure"); an answer without
    /// "status" gains an empty one. Left untouched, with a debug message,
    /// when the helper has no manager, the value is outside the catalogue,
    /// or the client refuses the request.
    void VornCloudDiskRequest(NubraCommon::VornCloudDiskInterface iface, QVariantMap& result, QVariantMap body,
                              QVariantMap params, QVariantMap headers, QString source);
    /// The same request as a response watcher (see the user-account form).
    /// Here the upload-queue controls go without a time-out option, and a
    /// value outside the catalogue does not throw: the callback receives
    /// Error (VornNubraHelperRespWatcher::NoReplyError), then Finished.
    VornNubraHelperRespWatcher VornCloudDiskRequest(NubraCommon::VornCloudDiskInterface iface, QVariantMap body,
                                                    QVariantMap params, QVariantMap headers, QString source);

    /// Connects to the message server and subscribes to `topics` (strings);
    /// messages then arrive as subscribeData() until the session ends.
    ///
    /// Returns Success at once, sending nothing, while a session made by an
    /// earlier call is marked connected. Otherwise sends "connectToServer"
    /// with {"username": the user token (only when `userName` is not
    /// empty), "serverAuthentication": 1}, and once connected, "subscribe"
    /// with {"topic": `topics`, "qos": 0}. `reserved` is not used.
    ///
    /// Waits `timeoutMs` milliseconds; user input is processed. The wait
    /// does not end when the subscription is made, so a normal subscription
    /// returns Timeout after the full `timeoutMs`, and messages flow from
    /// then on. A connection not made by then is dropped.
    ///
    /// Returns NoManager; RequestRejected when the client refuses to
    /// connect; Timeout as said; SubscribeFailed when a subscription held
    /// from an earlier call reports an error during the wait; Success when
    /// the wait ends early: the connection attempt failed (the subscribe
    /// request is then refused), the subscription was refused, or the
    /// connection was given up. Kept for compatibility with applications
    /// built against this interface: once the connect request has finished,
    /// whatever its answer, the session counts as connected (and the next
    /// call returns Success at once) until disconnectFromServer(), or until
    /// the made connection fails or is given up.
    int subscribe(const QString& userName, const QString& reserved, const QList<QVariant>& topics, int timeoutMs);
    /// Asks the client to leave the message server ("disconnectFromServer")
    /// without waiting. Returns Success when the request was accepted (the
    /// next subscribe() connects again), RequestRejected when refused,
    /// NoManager.
    int disconnectFromServer();

    /// Registers this application for automatic upgrades: model, installed
    /// version, version type (e.g. "release"), language and the folder that
    /// receives packages.
    ///
    /// Sends "autoUpgrade:setAutoUpgradeConfig" with {`modelCode`:
    /// {"modelCode", "versionType", "version", "maxPatch": 10, "osType":
    /// "mac", "langType"}, "checkInterval": 10, "path": `path`}. Waits at
    /// most 15 s; user input is held back.
    ///
    /// Returns NoManager, RequestRejected, Success, ResponseFailed,
    /// TransportError or Timeout.
    NubraCommon::ErrorCode setSoftwareAutoUpgrade(const QString& modelCode, const QString& version,
                                                  const QString& versionType, const QString& langType,
                                                  const QString& path);
    /// Asks whether a newer version of `modelCode` exists.
    ///
    /// The first call (and every call until one succeeds) first updates the
    /// client's configuration with a 3 s default time-out and waits for that
    /// without a time-out, user input processed; it goes on whatever the
    /// answer. Then sends "autoUpgrade:checkUpgrade" with {"modelCode"} and
    /// waits at most 15 s, user input held back.
    ///
    /// Returns NoManager; RequestRejected when either request is refused;
    /// Success with `upgradeInfo` set to the answer's "result" (the newer
    /// version, its size and notes); ResponseFailed, TransportError or
    /// Timeout with `upgradeInfo` untouched.
    NubraCommon::ErrorCode checkSoftwareUpgrade(const QString& modelCode, QVariantMap& upgradeInfo);
    /// Downloads the package of `modelCode` `version` into the folder given
    /// to setSoftwareAutoUpgrade(), resuming a partial download.
    ///
    /// Sends "autoUpgrade:startDownload" with {"upgrades": [{"modelCode",
    /// "version"}]} and waits, without a time-out, until the download
    /// finishes or pauseDownloadSoftware() is called; user input is
    /// processed (the user must be able to press pause). Progress arrives
    /// as downloadProgress().
    ///
    /// Returns NoManager; DownloadRunning while another download runs;
    /// RequestRejected when refused; otherwise Success after the wait on
    /// every path, and the outcome comes as a signal: downloadSuccess() when
    /// the download completed or was paused, downloadFail() when it failed.
    NubraCommon::ErrorCode startDownloadSoftware(const QString& modelCode, const QString& version);
    /// Pauses the running package download: the client stops the transfer
    /// and keeps its bytes, and startDownloadSoftware()'s wait ends (through
    /// quitDownloadLoop()). Does not wait. Returns Success, NoDownload when no
    /// download is held, or NoManager.
    NubraCommon::ErrorCode pauseDownloadSoftware();
    /// Asks whether the package of `modelCode` `version` is on disk.
    ///
    /// Sends "autoUpgrade:isExist" with {"modelCode", "version"} and waits
    /// at most 15 s, user input held back. On a "success" answer emits
    /// downloadProgress() once with the bytes on disk and the package size
    /// (read as 32-bit numbers), and returns PackageExists when at least one
    /// byte is there, Success when none. Otherwise NoManager,
    /// DownloadRunning, RequestRejected, ResponseFailed, TransportError or
    /// Timeout.
    NubraCommon::ErrorCode checkDownloadSoftwareExist(const QString& modelCode, const QString& version);

    /// Downloads `url` into the file `path` in the background and returns
    /// at once: sends "startDownload" with {"urls": `url`, "path": `path`}.
    /// Returns Success when the download started, RequestRejected or
    /// NoManager. Its progress and errors are written to the helper's log
    /// only; no signal reports them.
    NubraCommon::ErrorCode downloadFile(const QString& url, const QString& path);

    /// \name Protected data
    /// Protected text is the base64 of AES-128 cipher text (see EDData).
    /// These calls touch neither the cloud nor the helper's state and may be
    /// called from any thread. They return Success or SerializeFailed.
    /// @{

    /// Protects the indented JSON text of `object` (UTF-8) into `result`.
    /// SerializeFailed, with `result` untouched, only when the protected
    /// text comes out empty.
    int serializeObj(QJsonObject object, QString& result);
    /// Protects `content` (UTF-8) and writes the protected text to
    /// `filePath`, replacing the file. SerializeFailed when `content` is
    /// empty or the file cannot be opened.
    int serializeFile(QString content, QString filePath);
    /// Protects `content` (UTF-8) into `result`. SerializeFailed, with
    /// `result` untouched, when `content` is empty.
    int serializeData(const QString& content, QString& result);
    /// Protects the indented JSON text of `object` (in the local 8-bit
    /// encoding) and writes it to `filePath`, replacing the file.
    /// SerializeFailed when the file cannot be opened.
    int serializeData(QJsonObject object, QString filePath);
    /// Restores protected text into `result`, up to its first zero byte.
    /// Always returns Success: text that was not protected with the
    /// built-in key restores to unreadable characters, not to an error.
    int deserializeData(QString protectedText, QString& result);
    /// Restores protected text with the caller's AES-128 `key` (its UTF-8
    /// bytes, the first 16 used). Always returns Success; a key shorter than
    /// 16 bytes gives an empty `result`.
    int deserializeData(const QString& protectedText, const QString& key, QString& result);
    /// Standard base64 decoding; stops at the first "=" or other character
    /// outside the alphabet (EDData::base64_decode()).
    std::string deBase64(const std::string& text);
    /// @}

signals:
    /// A message arrived on the subscription made by subscribe(): its topic
    /// and its JSON payload as a map. Emitted on the helper's thread while
    /// the session lasts, also after subscribe() returned.
    void subscribeData(QString topic, QVariantMap params);
    /// Progress of the upload queue while the blocking
    /// VornCloudDiskRequest(StartUploadStart) waits.
    void uploadProgress(qint64 bytesSent, qint64 bytesTotal);
    /// Progress of the package download while startDownloadSoftware()
    /// waits; also emitted once by checkDownloadSoftwareExist().
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    /// startDownloadSoftware() ended with the package complete or paused.
    /// Emitted just before that call returns.
    void downloadSuccess();
    /// startDownloadSoftware() ended with a failed download. Emitted just
    /// before that call returns.
    void downloadFail();
    /// Ends startDownloadSoftware()'s wait; emitted by
    /// pauseDownloadSoftware().
    void quitDownloadLoop();

private:
    friend class VornNubraHelperRespWatcher;
    friend class VornNubraHelperTestAccess; // tests only: reach m_manager

    // The helper on a given manager (tests hand in one whose cloud they
    // script before the configuration call).
    explicit VornNubraHelper(Nubra::Manager* manager);

    Nubra::Manager* m_manager = nullptr;
    QString m_userToken;
    QString m_appId;
    bool m_upgradeConfigured = false;
    bool m_serverConnected = false;
    // Set and never read: kept for compatibility with applications built against this interface.
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
