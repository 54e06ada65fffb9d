// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Error.h>
#include <Nubra/NubraExport.h>

#include <QList>
#include <QObject>
#include <QSslError>
#include <QString>
#include <QVariantMap>

#include <functional>

namespace Nubra {

/// \file Reply.h
/// The outcome of one request, Nubra::Reply.

/// The outcome of one request started by Manager::request().
///
/// Guarantees a caller can rely on:
/// - status() is 0 when the request was accepted and is running; non-zero
///   (an Error::ErrorCode) when it could not be started. A refused reply
///   still emits errorOccurred() and finished() once, on a later turn of the
///   event loop.
/// - finished() is emitted exactly once per reply, also after an error.
///   After an error the map holds "status": "failure", "errorCode" (int) and
///   "message"; errorOccurred() always comes before that finished().
/// - No signal is emitted from inside Manager::request(): connect after it
///   returns and nothing is missed.
/// - Every signal is emitted on the thread of the Manager that made the
///   reply.
/// - The reply is a child of its manager; the caller releases it with
///   deleteLater() when done. Deleting a reply that is still running
///   cancels its transfer.
///
/// Which of the other signals a reply emits depends on its request: the
/// progress signals for transfers, the session signals and received() for
/// the message service.
class NUBRA_EXPORT Reply : public QObject {
    Q_OBJECT
public:
    ~Reply() override;

    /// 0 while accepted and in progress (or finished); an Error::ErrorCode
    /// when the request could not be started.
    int status() const;

    /// The name the request was started with.
    QString requestName() const;
    /// true once finished() was emitted.
    bool isFinished() const;
    /// The first error reported on this reply, or NoError.
    Error::ErrorCode error() const;
    /// The message of the first error reported, or an empty string.
    QString errorString() const;
    /// The HTTP status of the answer that ended the request; 0 when there
    /// was none (not an HTTP request, or no answer arrived).
    int httpStatus() const;

    /// Every reply that ends in a failure (an error, or a cloud answer whose
    /// "status" is "failure") writes one record to the logging category
    /// "nubra.outcome" at info level (off unless enabled, for example with
    /// QLoggingCategory::setFilterRules("nubra.outcome.info=true")). The
    /// record is a compact JSON object, so that a tool can show the cause of
    /// a failure without reaching the reply: "request", "error" (the
    /// Error::ErrorCode, 0 for a cloud failure answer), "errorName",
    /// "message" (the client's reason or the cloud's own message) and, when
    /// an answer arrived, "httpStatus". See docs/errors.md.
    static const char* const outcomeCategory;

signals:
    /// The request ended, exactly once: with the answer (for API requests
    /// the cloud's JSON object, "status" and "result"), with "status"
    /// "paused" after stop(), or with a failure map after errorOccurred().
    void finished(QVariantMap result);
    /// Message service: a message arrived on `topic`; `data` is its JSON
    /// payload as a map.
    void received(QString topic, QVariantMap data);
    /// The request failed with `error`; finished() follows.
    void errorOccurred(Nubra::Error::ErrorCode error);
    /// One item of a multi-item request (a file of an upload queue or of a
    /// package download) failed; the request goes on.
    void oneErrorOccurred(QString name, Nubra::Error::ErrorCode error);
    /// Upload progress of the whole request.
    void uploadProgress(qint64 bytesSent, qint64 bytesTotal);
    /// Download progress of the whole request.
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    /// Download progress of one item, by name.
    void downloadProgressOfOne(QString name, qint64 bytesReceived, qint64 bytesTotal);
    /// TLS errors met while connecting; errorOccurred() follows when they
    /// fail the request.
    void sslErrorOccurred(const QList<QSslError>& errors);

    /// Message service: connected to the broker.
    void connected();
    /// Message service: disconnected from the broker.
    void disconnected();
    /// Message service: subscribed to `topic` with the granted `qos`.
    void subscribed(QVariantList topic, uchar qos);
    /// Message service: unsubscribed from `topic`.
    void unsubscribed(QVariantList topic);

    /// \name Commands that are also notifications
    /// Emitting stop() pauses the whole transfer (a download keeps its
    /// partial bytes and ends with finished()), stop(name) one named item;
    /// abort() cancels the whole request, abort(name) one item. Anyone may
    /// connect to them to hear that it happened; the message service also
    /// emits abort() itself when it has given up reconnecting.
    /// @{

    /// Pauses the whole transfer.
    void stop();
    /// Pauses the item `name`.
    void stop(QString name);
    /// Cancels the whole request (it fails with Error::Cancelled).
    void abort();
    /// Cancels the item `name`.
    void abort(QString name);
    /// @}

protected:
    /// For the client's own reply types.
    explicit Reply(const QString& requestName, QObject* parent = nullptr);

    /// Sets status().
    void setStatus(int status);
    /// Records the HTTP status of the answer (see httpStatus()).
    void setHttpStatus(int status);

    /// Emits finished(result) unless the reply already finished.
    void finishWith(const QVariantMap& result);
    /// Emits errorOccurred(code), then finished() with a failure map that
    /// also holds the entries of `extra`. Ignored after the reply finished.
    void failWith(Error::ErrorCode code, const QString& message, const QVariantMap& extra = {});
    /// failWith() on the next turn of the event loop, for failures found
    /// while the request is still being created.
    void failLater(Error::ErrorCode code, const QString& message);
    /// Finishes with "status" "paused" and the map `result` gives then, on a
    /// later turn of the event loop: whoever called stop() acts on the pause
    /// first.
    void finishPausedLater(std::function<QVariantMap()> result);
    /// Emits abort() as a notification without running onAbort().
    void notifyAbort();

    /// Called when stop() is emitted (by anyone); `item` is empty for the
    /// whole request. Does nothing by default.
    virtual void onStop(const QString& item);
    /// Called when abort() is emitted (by anyone); `item` is empty for the
    /// whole request. By default fails the reply with Error::Cancelled.
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
    void logOutcome(Error::ErrorCode code, const QString& message, int httpStatus) const;

    QString m_requestName;
    int m_status = 0;
    int m_httpStatus = 0;
    bool m_finished = false;
    bool m_notifyingAbort = false;
    Error::ErrorCode m_error = Error::NoError;
    QString m_errorString;
};

} // namespace Nubra
