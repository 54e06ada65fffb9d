// SPDX-License-Identifier: MIT
#pragma once

#include "http/CurlTransfer.h"

#include <Nubra/Error.h>

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <functional>

namespace Nubra {

class CurlMultiDriver;

// One request to the cloud that answers with JSON: the API requests, the
// upgrade service's calls and the upload queue's calls all go through it.
// It owns the target URL (the client's one URL join), the JSON body and
// its headers, the bound on the answer and the one rule that turns the
// answer into a JSON object or an error (docs/errors.md):
//
// - the transfer failed: curl's code mapped to ours with curl's text, or
//   the transfer's own refusal (a redirect, a stall) with its cause;
// - more than kMaxAnswerBytes came: InvalidResponse naming the bound;
// - the answer is a JSON object: it is the answer, whatever the HTTP
//   status (the cloud explains its failures in it; each caller decides
//   what a failure object means);
// - anything else: HttpError "HTTP status N" for a status of 400 or more,
//   else InvalidResponse naming the status and the size.
//
// Not a QObject, so that an API reply can hold it as a member without an
// allocation of its own. The owner hears the answer exactly once (unless it
// cancels or deletes the call first), from the event loop, and may delete
// the call from the handler.
class JsonCall {
public:
    // One bound for every JSON answer. The largest real answers are
    // listings (a user's files, messages, devices): 32 MiB holds hundreds
    // of thousands of entries. Upgrade and upload answers are far smaller,
    // but a bound per caller bought nothing: it only protects memory, and
    // a broken or hostile server can make one call hold at most this much
    // (and its parsed map) before the call fails.
    static constexpr int kMaxAnswerBytes = 32 * 1024 * 1024;

    struct Answer {
        // NoError: object is the answer's JSON object.
        Error::ErrorCode code = Error::NoError;
        QString message;
        int httpStatus = 0; // 0 when no answer came
        QVariantMap object;
        // What failed: the transfer itself (its sslErrors() may say more),
        // the answer's size, or its content.
        enum class Failure { None, Transfer, Size, Content };
        Failure failure = Failure::None;
        int curlCode = 0; // CURLE_OK when the transfer succeeded
    };
    using AnswerHandler = std::function<void(const Answer& answer)>;

    explicit JsonCall(CurlMultiDriver* driver);
    JsonCall(const JsonCall&) = delete;
    JsonCall& operator=(const JsonCall&) = delete;

    // The transfer, for what only some calls set (method, time-outs, own
    // headers, a streamed body, a prepared endpoint URL).
    CurlTransfer& transfer() { return m_transfer; }

    // pathOrUrl below base (ClientConfig::join, the client's one URL join),
    // or as it is when it is an absolute URL the cloud handed out, with
    // query's entries appended (appendQuery). Where a redirect may lead is
    // the transfer's RedirectPolicy. Returns the URL.
    QUrl setUrl(const QUrl& base, const QString& pathOrUrl, const QVariantMap& query = {});
    // Sends body as compact JSON, Qt's own writer.
    void setJsonBody(const QVariantMap& body);
    // "Accept: application/json", and "Content-Type: application/json"
    // when a JSON body goes out, from lists built once and shared by every
    // call (sent after the transfer's own headers). A header the caller
    // added itself is left out, so that curl does not send it twice.
    void setJsonHeaders(bool withBody, bool ownAccept = false, bool ownType = false);
    void setAnswerHandler(AnswerHandler handler) { m_handler = std::move(handler); }

    // The cloud's own verdict in an answer that is a JSON object, for the
    // calls that read it (upgrade, uploads): "status" "success", or a
    // failure with the cloud's "message" (else "the cloud answered a
    // failure (HTTP N)"): HttpError from HTTP 400 on, else
    // ProtocolErrorOther. Returns true for success; the answer's own
    // failure comes first.
    static bool cloudSucceeded(const Answer& answer, Error::ErrorCode* code, QString* message);

    bool start() { return m_transfer.start(); }
    // Stops the call; the handler is not called.
    void cancel() { m_transfer.cancel(); }

private:
    void completed(int curlCode);
    Answer read(int curlCode) const;

    AnswerHandler m_handler;
    QByteArray m_answer;
    bool m_tooLarge = false;
    // Last: it dies first, before the answer buffer its sink writes to.
    CurlTransfer m_transfer;
};

} // namespace Nubra
