// SPDX-License-Identifier: MIT
#pragma once

#include "VornNubraHelperExport.h"

#include <QEventLoop>
#include <QList>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QSslError>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <Nubra/Error.h>

#include <functional>

class VornNubraHelper;
namespace Nubra {
class Manager;
class Reply;
}

/// \file VornNubraHelperRespWatcher.h
/// The response watcher, VornNubraHelperRespWatcher.

/// Runs one cloud request and reports everything that happens to it through
/// one callback. VornNubraHelper::VornUserAccountRequest() and
/// VornNubraHelper::VornCloudDiskRequest() hand one out:
///
/// \code
/// helper->VornUserAccountRequest(iface, body, params, headers, extra, source)
///     .onResp("captcha", [](QString name, VornNubraHelperRespWatcher::ResponseEvent event,
///                           const VornNubraHelperRespWatcher::Info& info) { ... })
///     .exec(VornNubraHelperRespWatcher::Async);
/// \endcode
///
/// Guarantees:
/// - A watcher's request is sent at most once: only the first onResp()
///   counts, only the first exec() of an Exec runs, and a watcher or Exec
///   dropped without exec() still sends its request once, blocking (Sync).
/// - In Sync mode exec() returns after the reply emitted finished(); there
///   is no time-out here (the cloud client's own time-out ends every
///   request). The wait runs a local event loop that processes all events,
///   user input included, so other code (and other callbacks) can run
///   before exec() returns.
/// - In Async mode exec() returns once the request is sent, and the
///   callback runs on later turns of the event loop.
/// - Ownership: the caller owns the watcher and the Exec (both move-only
///   values). The Exec::CallBack that runs the request has no parent and
///   outlives both, so Async callbacks keep arriving after the caller
///   returned; it deletes itself about 2 s after finished() (at once after a
///   failed start), releasing the reply with it. Keep whatever the callback
///   captures alive that long, or capture by value or QPointer.
/// - A failed start (no reply, or a non-zero Nubra::Reply::status()) gives
///   exactly two callback calls, Error then Finished, with Info::error set
///   to the status (NoReplyError when there was no reply at all).
class VORN_NUBRA_HELPER_EXPORT VornNubraHelperRespWatcher {
public:
    /// How Exec::exec() waits.
    enum Mode : int {
        Sync = 0,  ///< exec() returns after the request finished (local event loop, all events processed).
        Async = 1, ///< exec() returns once the request is sent; events arrive later.
    };

    /// What happened to the request, as passed to the callback.
    enum ResponseEvent : int {
        Finished = 0,         ///< The request finished; Info::params holds the answer map. Exactly once per request.
        Connected = 1,        ///< Message service: connected to the broker (Info is empty).
        Subscribed = 2,       ///< Message service: subscribed; Info::topic and Info::qos are set.
        Unsubscribed = 3,     ///< Message service: unsubscribed; Info::topic is set.
        Disconnected = 4,     ///< Message service: disconnected (Info is empty).
        SslError = 5,         ///< TLS errors; Info::errors is set.
        Error = 6,            ///< The request, or one item of it (Info::name), failed with Info::error; Finished follows for the request.
        DownloadProgress = 7, ///< Download progress: Info::bytes of Info::bytesTotal, of one item when Info::name is set.
        UploadProgress = 8,   ///< Upload progress: Info::bytes of Info::bytesTotal.
        Abort = 9,            ///< The request, or the item Info::name, was cancelled.
        Stop = 10,            ///< The request, or the item Info::name, was paused.
    };

    /// What the callback receives besides the event. One Info object
    /// accumulates over the request's events: a field keeps its last value
    /// until an event sets it again.
    struct Info {
        QString name;           ///< The item an event concerns (a file of a queue), empty for the whole request.
        QVariantMap params;     ///< The answer map, set for Finished.
        QVariantList topic;     ///< The topics, set for Subscribed and Unsubscribed.
        quint8 qos = 0;         ///< The granted quality of service, set for Subscribed.
        QList<QSslError> errors; ///< The TLS errors, set for SslError.
        int error = 0;          ///< A Nubra::Error::ErrorCode, or the refusing status, set for Error.
        qint64 bytes = 0;       ///< Bytes moved so far, set for progress events.
        qint64 bytesTotal = 0;  ///< Bytes to move in all, set for progress events.
    };

    /// The callback: the name given to onResp(), the event and its Info.
    using Callback = std::function<void(QString, ResponseEvent, const Info&)>;
    /// Starts the request: called once with the helper's manager and the
    /// watcher's request map; returns the reply (or null).
    using Requester = std::function<Nubra::Reply*(Nubra::Manager*, QVariantMap)>;

    /// Info::error when no reply object exists.
    static constexpr int NoReplyError = 20630;

    /// The handle onResp() returns: runs the request with exec().
    class Exec {
    public:
        class CallBack;

        /// An empty handle; exec() does nothing and returns false.
        Exec() = default;
        /// Used by onResp(). `done` true makes exec() do nothing.
        Exec(CallBack* callBack, VornNubraHelperRespWatcher* watcher, Mode mode, bool done, QString name);
        /// Takes over the other handle; the other one will not send.
        Exec(Exec&& other) noexcept;
        /// Takes over the other handle; the other one will not send.
        Exec& operator=(Exec&& other) noexcept;
        Exec(const Exec&) = delete;
        Exec& operator=(const Exec&) = delete;
        /// Sends the request, blocking (Sync), if exec() was never called.
        ~Exec();

        /// exec() in the mode given here.
        bool exec(Mode mode);
        /// Sends the request once, in the handle's mode (Sync unless set).
        /// Returns false when there is nothing to send (an empty or used
        /// handle, a second onResp()) or the helper has no manager, both
        /// without callback calls; otherwise true, also after a failed start
        /// (whose Error and Finished the callback has received by then).
        /// Throws what the watcher's Requester throws (std::bad_function_call
        /// for a watcher built without one).
        bool exec();

        CallBack* callBack = nullptr;                ///< The CallBack created by exec(); it deletes itself, never delete it.
        VornNubraHelperRespWatcher* watcher = nullptr; ///< The watcher whose request this handle sends; not owned.
        Mode mode = Sync;                            ///< The mode exec() uses.
        bool done = false;                           ///< true once exec() ran (or when the handle must not send).
        QString name;                                ///< The name given to onResp().
    };

    /// A watcher for `request`, sent through `requester` with the manager of
    /// `helper` (not owned).
    VornNubraHelperRespWatcher(const QVariantMap& request, VornNubraHelper* helper, Requester requester);
    /// Takes over the other watcher; the other one will not send.
    VornNubraHelperRespWatcher(VornNubraHelperRespWatcher&& other) noexcept;
    /// Takes over the other watcher; the other one will not send.
    VornNubraHelperRespWatcher& operator=(VornNubraHelperRespWatcher&& other) noexcept;
    VornNubraHelperRespWatcher(const VornNubraHelperRespWatcher&) = delete;
    VornNubraHelperRespWatcher& operator=(const VornNubraHelperRespWatcher&) = delete;
    /// Sends the request once, blocking and without a callback, when
    /// onResp() was never called.
    ~VornNubraHelperRespWatcher();

    /// Names the request and sets its callback; returns the handle whose
    /// exec() sends it. Only the first call counts: later calls return a
    /// handle that does nothing (they still change `name`).
    Exec onResp(const QString& name, Callback callback);
    /// The helper's manager, or null (no helper).
    Nubra::Manager* manager() const;

    VornNubraHelper* helper = nullptr; ///< The helper whose manager sends the request; not owned.
    QVariantMap request;               ///< The map handed to the Requester.
    Requester requester;               ///< Starts the request.
    Callback callback;                 ///< Set by onResp().
    bool armed = false;                ///< true once onResp() was called (the request is no longer sent by the destructor).
    QString name;                      ///< The name given to onResp().
};

/// Owns the link to one reply: turns its signals into callback calls and, in
/// Sync mode, waits for finished() in a local event loop that processes all
/// events. Has no parent and deletes itself about 2 s after finished(), or
/// at once after a failed start; the reply goes with it (deferred deletion).
/// Created by Exec::exec(); applications do not create or delete it.
class VORN_NUBRA_HELPER_EXPORT VornNubraHelperRespWatcher::Exec::CallBack : public QObject {
    Q_OBJECT
public:
    using Mode = VornNubraHelperRespWatcher::Mode; ///< See VornNubraHelperRespWatcher::Mode.
    using Info = VornNubraHelperRespWatcher::Info; ///< See VornNubraHelperRespWatcher::Info.

    /// Connects every signal of `reply` (which may be null) to the slots below.
    CallBack(const QString& name, Nubra::Reply* reply, Mode mode, VornNubraHelperRespWatcher::Callback callback);
    /// Releases the reply by deferred deletion.
    ~CallBack() override;

    /// Runs the request: after a failed start, reports Error and Finished,
    /// schedules its own deletion and returns false only when there was no
    /// reply; otherwise returns true, in Sync mode after finished().
    bool process();

public slots:
    /// Reports Finished with the answer, ends the Sync wait, and schedules
    /// the deletion (tryQuit()).
    void finished(QVariantMap params);
    /// Deletes this object about 2 s later, once process() has returned.
    void tryQuit();
    /// Reports Connected.
    void connected();
    /// Reports Subscribed.
    void subscribed(QVariantList topic, uchar qos);
    /// Reports Unsubscribed.
    void unsubscribed(QVariantList topic);
    /// Reports Disconnected.
    void disconnected();
    /// Reports SslError.
    void sslErrorOccurred(const QList<QSslError>& errors);
    /// Reports Error for the whole request.
    void errorOccurred(Nubra::Error::ErrorCode error);
    /// Reports DownloadProgress for the whole request.
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    /// Reports UploadProgress.
    void uploadProgress(qint64 bytesSent, qint64 bytesTotal);
    /// Reports DownloadProgress of one item.
    void downloadProgress(QString name, qint64 bytesReceived, qint64 bytesTotal);
    /// Reports Error of one item.
    void errorOccurred(QString name, Nubra::Error::ErrorCode error);
    /// Reports Abort for the whole request.
    void abort();
    /// Reports Abort of one item.
    void abort(QString name);
    /// Reports Stop for the whole request.
    void stop();
    /// Reports Stop of one item.
    void stop(QString name);

public:
    QString name;                              ///< The name given to onResp(), passed to every callback call.
    QPointer<Nubra::Reply> reply;              ///< The reply; released with this object.
    Mode mode = VornNubraHelperRespWatcher::Sync; ///< How process() waits.
    VornNubraHelperRespWatcher::Callback callback; ///< Receives the events; may be empty.
    bool processed = false;                    ///< true once process() returned (deletion waits for it).
    QEventLoop* loop = nullptr;                ///< The Sync wait's loop, a child of this object.
    Info info;                                 ///< Accumulates the events' data.
    QList<QMetaObject::Connection> connections; ///< The connections to the reply.
};
