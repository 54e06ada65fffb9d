#pragma once

#include <Nubra/Error.h>

#include <QList>
#include <QObject>
#include <QSslError>
#include <QString>
#include <QVariantMap>

#include <functional>

namespace Nubra {

// The outcome of one request started by Manager::request().
//
// Guarantees a caller can rely on:
// - status() is 0 when the request was accepted and is running; non-zero
//   (an Error::ErrorCode) when it could not be started. A refused reply
//   still emits errorOccurred() and finished() once, on a later turn of the
//   event loop.
// - finished() is emitted exactly once per reply, also after an error. After
//   an error the map holds "status": "failure", "errorCode" (int) and
//   "message"; errorOccurred() always comes before that finished().
// - No signal is emitted from inside Manager::request(): connect after it
//   returns and nothing is missed.
// - Every signal is emitted on the thread of the Manager that made the reply.
// - The caller owns the reply and releases it with deleteLater(). Deleting a
//   reply that is still running cancels its transfer.
class Reply : public QObject {
    Q_OBJECT
public:
    ~Reply() override;

    // 0 while accepted and in progress (or finished); an Error::ErrorCode
    // when the request could not be started.
    int status() const;

    QString requestName() const;
    bool isFinished() const;
    // The first error reported on this reply, or NoError.
    Error::ErrorCode error() const;
    QString errorString() const;

signals:
    void finished(QVariantMap result);
    void received(QString topic, QVariantMap data);
    void errorOccurred(Nubra::Error::ErrorCode error);
    void oneErrorOccurred(QString name, Nubra::Error::ErrorCode error);
    void uploadProgress(qint64 bytesSent, qint64 bytesTotal);
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void downloadProgressOfOne(QString name, qint64 bytesReceived, qint64 bytesTotal);
    void sslErrorOccurred(const QList<QSslError>& errors);

    // Session events of the message service.
    void connected();
    void disconnected();
    void subscribed(QVariantList topic, uchar qos);
    void unsubscribed(QVariantList topic);

    // Commands that are also notifications. Calling stop() pauses the whole
    // transfer (a download keeps its partial bytes and ends with finished()),
    // stop(name) one named item; abort() cancels the whole request,
    // abort(name) one item. Anyone may connect to them to hear that it
    // happened; the message service also emits abort() itself when it has
    // given up reconnecting.
    void stop();
    void stop(QString name);
    void abort();
    void abort(QString name);

protected:
    explicit Reply(const QString& requestName, QObject* parent = nullptr);

    void setStatus(int status);

    // Emits finished(result) unless the reply already finished.
    void finishWith(const QVariantMap& result);
    // Emits errorOccurred(code), then finished() with a failure map that
    // also holds the entries of extra. Ignored after the reply finished.
    void failWith(Error::ErrorCode code, const QString& message, const QVariantMap& extra = {});
    // The same on the next turn of the event loop, for failures found while
    // the request is still being created.
    void failLater(Error::ErrorCode code, const QString& message);
    // Finishes with "status" "paused" and the map `result` gives then, on a
    // later turn of the event loop: whoever called stop() acts on the pause
    // first.
    void finishPausedLater(std::function<QVariantMap()> result);
    // Emits abort() as a notification without running onAbort().
    void notifyAbort();

    // Called when stop()/abort() is emitted (by anyone). item is empty for
    // the whole request. The default stop does nothing; the default abort
    // fails the reply with Cancelled.
    virtual void onStop(const QString& item);
    virtual void onAbort(const QString& item);

private Q_SLOTS:
    // Where the reply hears its own stop()/abort() signals. Connected by
    // method index: a functor connection would cost an allocation more per
    // signal, four per reply.
    void stopEmitted();
    void stopItemEmitted(const QString& item);
    void abortEmitted();
    void abortItemEmitted(const QString& item);

private:
    QString m_requestName;
    int m_status = 0;
    bool m_finished = false;
    bool m_notifyingAbort = false;
    Error::ErrorCode m_error = Error::NoError;
    QString m_errorString;
};

} // namespace Nubra
