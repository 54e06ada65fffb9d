#pragma once

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

// Runs one cloud request and reports everything that happens to it through
// one callback.
//
//   VornNubraHelperRespWatcher watcher(record, helper, requester);
//   watcher.onResp("name", callback).exec(VornNubraHelperRespWatcher::Async);
//
// Guarantees:
// - A watcher's request is sent at most once: only the first onResp() counts,
//   only the first exec() of an Exec runs, and a watcher or Exec dropped
//   without exec() still sends its request once, blocking (Sync).
// - In Sync mode exec() returns after the reply emitted finished(); there is
//   no time-out here (the cloud client's own time-out ends every request).
//   The wait runs a local event loop that processes all events, so other
//   code (and other callbacks) can run before exec() returns.
// - The CallBack object outlives the watcher and the Exec: Async callbacks
//   keep arriving after the caller returned. It deletes itself about 2 s
//   after finished() (and at once after a failed start), taking the reply
//   with it.
// - A failed start (no reply, or status() non-zero) gives exactly two
//   callback calls, Error then Finished, with info.error set to the status
//   (20630 when there was no reply at all).
class VornNubraHelperRespWatcher {
public:
    enum Mode : int { Sync = 0, Async = 1 };

    enum ResponseEvent : int {
        Finished = 0,
        Connected = 1,
        Subscribed = 2,
        Unsubscribed = 3,
        Disconnected = 4,
        SslError = 5,
        Error = 6,
        DownloadProgress = 7,
        UploadProgress = 8,
        Abort = 9,
        Stop = 10,
    };

    struct Info {
        QString name;
        QVariantMap params;
        QVariantList topic;
        quint8 qos = 0;
        QList<QSslError> errors;
        int error = 0;
        qint64 bytes = 0;
        qint64 bytesTotal = 0;
    };

    using Callback = std::function<void(QString, ResponseEvent, const Info&)>;
    using Requester = std::function<Nubra::Reply*(Nubra::Manager*, QVariantMap)>;

    // Error number used in Info::error when no reply object exists.
    static constexpr int NoReplyError = 20630;

    class Exec {
    public:
        class CallBack;

        Exec() = default;
        Exec(CallBack* callBack, VornNubraHelperRespWatcher* watcher, Mode mode, bool done, QString name);
        Exec(Exec&& other) noexcept;
        Exec& operator=(Exec&& other) noexcept;
        Exec(const Exec&) = delete;
        Exec& operator=(const Exec&) = delete;
        ~Exec();

        bool exec();
        bool exec(Mode mode);

        CallBack* callBack = nullptr;
        VornNubraHelperRespWatcher* watcher = nullptr;
        Mode mode = Sync;
        bool done = false;
        QString name;
    };

    VornNubraHelperRespWatcher(const QVariantMap& request, VornNubraHelper* helper, Requester requester);
    VornNubraHelperRespWatcher(VornNubraHelperRespWatcher&& other) noexcept;
    VornNubraHelperRespWatcher& operator=(VornNubraHelperRespWatcher&& other) noexcept;
    VornNubraHelperRespWatcher(const VornNubraHelperRespWatcher&) = delete;
    VornNubraHelperRespWatcher& operator=(const VornNubraHelperRespWatcher&) = delete;
    ~VornNubraHelperRespWatcher();

    Exec onResp(const QString& name, Callback callback);
    Nubra::Manager* manager() const;

    VornNubraHelper* helper = nullptr;
    QVariantMap request;
    Requester requester;
    Callback callback;
    bool armed = false;
    QString name;
};

// Owns the link to one reply: turns its signals into callback calls and, in
// Sync mode, waits for finished() in a local event loop. Has no parent and
// deletes itself (see VornNubraHelperRespWatcher).
class VornNubraHelperRespWatcher::Exec::CallBack : public QObject {
    Q_OBJECT
public:
    using Mode = VornNubraHelperRespWatcher::Mode;
    using Info = VornNubraHelperRespWatcher::Info;

    CallBack(const QString& name, Nubra::Reply* reply, Mode mode, VornNubraHelperRespWatcher::Callback callback);
    ~CallBack() override;

    bool process();

public slots:
    void finished(QVariantMap params);
    void tryQuit();
    void connected();
    void subscribed(QVariantList topic, uchar qos);
    void unsubscribed(QVariantList topic);
    void disconnected();
    void sslErrorOccurred(const QList<QSslError>& errors);
    void errorOccurred(Nubra::Error::ErrorCode error);
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void uploadProgress(qint64 bytesSent, qint64 bytesTotal);
    void downloadProgress(QString name, qint64 bytesReceived, qint64 bytesTotal);
    void errorOccurred(QString name, Nubra::Error::ErrorCode error);
    void abort();
    void abort(QString name);
    void stop();
    void stop(QString name);

public:
    QString name;
    QPointer<Nubra::Reply> reply;
    Mode mode = VornNubraHelperRespWatcher::Sync;
    VornNubraHelperRespWatcher::Callback callback;
    bool processed = false;
    QEventLoop* loop = nullptr;
    Info info;
    QList<QMetaObject::Connection> connections;
};
