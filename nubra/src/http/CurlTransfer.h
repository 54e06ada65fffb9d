// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSslError>
#include <QString>
#include <QUrl>

#include "http/RedirectPolicy.h"
#include "http/StallDetector.h"

#include <Nubra/Error.h>

#include <curl/curl.h>

#include <functional>

namespace Nubra {

class CurlMultiDriver;

// One libcurl easy handle run by a CurlMultiDriver. The owner sets it up,
// calls start() and hears completed() exactly once (unless it cancels or
// deletes the transfer first). Callbacks run on the driver's thread.
//
// Every libcurl option the client sets is set in CurlTransfer.cpp: the
// options every handle carries for its whole life in
// applyStandingOptions(), a request's own ones in the setters below. The
// handle is not open to callers; what they need of it has a setter or a
// getter here. A handle goes back to the driver's pool through
// curl_easy_reset() and applyStandingOptions(), so the next transfer on it
// starts from exactly the standing options, whatever the last one set.
class CurlTransfer : public QObject {
    Q_OBJECT
public:
    // Receives body bytes; return false to abort with a write error.
    using BodySink = std::function<bool(const char* data, size_t size)>;
    // Fills buf with up to size bytes of request body; returns the count
    // (0 at the end) or CURL_READFUNC_ABORT.
    using BodySource = std::function<size_t(char* buf, size_t size)>;

    // Called instead of emitting completed(), for an owner that is the
    // transfer's only listener (cheaper than a connection per request).
    using CompletionHandler = std::function<void(int curlCode)>;

    CurlTransfer(CurlMultiDriver* driver, QObject* parent = nullptr);
    ~CurlTransfer() override;

    void setUrl(const QUrl& url);
    void setEncodedUrl(const QByteArray& url);
    // A URL that many transfers use (a configured endpoint): parsed once
    // per thread and handed to curl as a parsed URL.
    void setEndpointUrl(const QByteArray& url);
    void setMethod(const QByteArray& method);
    void addHeader(const QByteArray& name, const QByteArray& value);
    // Headers sent after those of addHeader(), from a list that outlives
    // the transfer and is shared by many (not copied, not freed here).
    void setSharedHeaders(curl_slist* list);
    // An in-memory body (copied).
    void setBody(const QByteArray& body);
    // A streamed body of known size (uploads from disk).
    void setBodySource(BodySource source, qint64 size);
    void setBodySink(BodySink sink);
    void setCompletionHandler(CompletionHandler handler);
    // Time-out of the whole transfer; 0 = none.
    void setTimeoutMs(int ms);
    // Abort with TimedOut when fewer than minBytesPerSecond moved on
    // average over the last `seconds`; 0 seconds = off.
    void setStallLimit(int seconds, qint64 minBytesPerSecond);
    // Where redirects may lead (default SameOrigin).
    void setRedirectPolicy(RedirectPolicy policy) { m_redirectPolicy = policy; }
    // Refuse an answer whose announced length exceeds this; 0 = no bound.
    void setMaxAnswerBytes(qint64 bytes);
    void setResumeFrom(qint64 offset);
    void setCaFile(const QString& path);
    void setProxy(const QString& proxy);
    // No proxy, whatever the environment says now.
    void setDirect();
    // Caps the receive rate (bytes/s); 0 = unlimited.
    void setMaxReceiveSpeed(qint64 bytesPerSecond);
    // Size of curl's receive buffer (curl's default: 16 KiB; large files
    // move with fewer write calls through a larger one).
    void setReceiveBufferSize(long bytes);

    bool start();
    // Stops the transfer without completed(); the handle can be discarded.
    void cancel();
    bool isRunning() const { return m_running; }

    long httpStatus() const;
    // Content-Length of the current answer, or -1 when it announced none.
    qint64 contentLength() const;
    // Last value of a response header (case-insensitive name), or empty.
    QByteArray responseHeader(const QByteArray& name) const;
    QList<QSslError> sslErrors() const { return m_sslErrors; }
    QString curlErrorText() const { return QString::fromUtf8(m_errorBuffer); }
    // What a failed transfer reports: a refusal of our own (a redirect, a
    // stall) when there was one, else curl's code mapped to ours with
    // curl's text.
    struct Failure {
        Error::ErrorCode code;
        QString message;
    };
    Failure failure(int curlCode) const;
    qint64 elapsedMs() const { return m_clock.isValid() ? m_clock.elapsed() : 0; }

signals:
    // Rate-limited to about 20 per second, plus a final one.
    void progress(qint64 received, qint64 receiveTotal, qint64 sent, qint64 sendTotal);
    void completed(int curlCode);

private:
    // The driver adds and removes the handle, completes the transfer and
    // prepares pooled handles (applyStandingOptions()); nothing else sees
    // the handle.
    friend class CurlMultiDriver;
    CURL* handle() const { return m_easy; }
    // The options every handle carries, on a fresh handle or after
    // curl_easy_reset(). The driver's connection callbacks are among them
    // when there is a driver.
    static void applyStandingOptions(CURL* easy, CurlMultiDriver* driver);
    void complete(CURLcode result);

    static size_t writeCallback(char* data, size_t size, size_t count, void* self);
    static size_t readCallback(char* buffer, size_t size, size_t count, void* self);
    static size_t headerCallback(char* data, size_t size, size_t count, void* self);
    static int progressCallback(void* self, curl_off_t dlTotal, curl_off_t dlNow, curl_off_t ulTotal,
                                curl_off_t ulNow);
    void emitProgress(bool force);
    void connectNotify(const QMetaMethod& signal) override;
    void readBodyFromMemory();
    curl_slist* lastOwnHeader() const;
    void applyHeaders();
    bool checkHeaderLine(const char* data, size_t size);

    QPointer<CurlMultiDriver> m_driver;
    CURL* m_easy = nullptr;
    curl_slist* m_headers = nullptr;
    curl_slist* m_sharedHeaders = nullptr;
    QByteArray m_url;
    QByteArray m_method;
    QByteArray m_body;
    size_t m_bodyOffset = 0;
    QByteArray m_caFile;
    QByteArray m_proxy;
    BodySink m_sink;
    CompletionHandler m_completionHandler;
    BodySource m_source;
    QByteArray m_responseHeaders; // raw header lines of the last response
    QList<QSslError> m_sslErrors;
    RedirectPolicy m_redirectPolicy = RedirectPolicy::SameOrigin;
    long m_headStatus = 0; // status of the response whose head is being read
    Failure m_refusal{Error::NoError, QString()};
    StallDetector m_stall;
    char m_errorBuffer[CURL_ERROR_SIZE] = {};
    bool m_running = false;
    bool m_progressPending = false;
    bool m_progressWanted = false;
    QElapsedTimer m_clock;
    QElapsedTimer m_progressClock;
    qint64 m_received = 0, m_receiveTotal = 0, m_sent = 0, m_sendTotal = 0;
    qint64 m_reported[4] = {-1, -1, -1, -1};
};

} // namespace Nubra
