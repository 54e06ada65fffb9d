// SPDX-License-Identifier: MIT
#pragma once

#include "core/Service.h"
#include "http/JsonCall.h"
#include "transfer/UploadItem.h"

#include <Nubra/Reply.h>

#include <QFile>
#include <QPointer>
#include <QVariantList>

#include <deque>
#include <memory>

namespace Nubra {

class FileHasher;
class Sha256;

// Reply of "startUpload:start": uploads a batch of queued files one after
// the other. For each file the server is asked first whether the target
// space holds files of the same size. If none, the file is streamed from
// disk at once and hashed on the way. If some, its SHA-256 is computed from
// disk first and the server asked again with size and digest: a file it
// already holds is skipped, any other streamed as before. Either way the
// size and SHA-256 the server reports for the stored bytes must match ours.
//
// - uploadProgress(sent, total) covers the whole batch: total is the sum of
//   the file sizes; a skipped file counts as sent. The last report before
//   finished() is (total, total) when every file succeeded.
// - A file that fails emits oneErrorOccurred(path, code) and the batch goes
//   on; finished() comes once after the last file: "status" "success" when
//   none failed, else a failure (errorOccurred first) whose "result" still
//   lists every file.
// - abort() cancels the batch (Cancelled); abort(path) drops one file.
//   stop() pauses: the unfinished files go back to the front of the queue
//   and the reply finishes with "status" "stopped".
class UploadQueueReply : public Reply {
    Q_OBJECT
public:
    using Queue = std::deque<UploadItem>;

    UploadQueueReply(const ClientContext& context, std::vector<UploadItem> batch, std::shared_ptr<Queue> queue,
                     int stallSeconds, QObject* parent);
    ~UploadQueueReply() override;

    void begin();
    // Cancels the batch because the queue was cleared; returns the number
    // of files that were not finished.
    int cancelForClear();

protected:
    void onStop(const QString& item) override;
    void onAbort(const QString& item) override;

private:
    enum class Outcome { Uploaded, Skipped, Failed, Cancelled };

    void nextItem();
    void hashFirst();
    void hashed(const QString& sha256, qint64 size);
    void checkExists(bool withDigest);
    void existsAnswered(const JsonCall::Answer& answer);
    void sendFile();
    void sendCompleted(const JsonCall::Answer& answer);
    void itemDone(Outcome outcome, const QVariantMap& details, Error::ErrorCode code = Error::NoError,
                  const QString& message = QString());
    void finishBatch();
    void stopWork();
    // A call for the current file with its upload token: to the path
    // below the file's base URL, asking for JSON.
    JsonCall& newCall(const QString& path, const QVariantMap& query, const QByteArray& method, bool jsonBody);
    void reportProgress(qint64 sentOfCurrent);
    QVariantMap summary() const;

    ClientContext m_context;
    std::vector<UploadItem> m_batch;
    std::shared_ptr<Queue> m_queue;
    int m_stallSeconds;
    size_t m_index = 0;
    QString m_sha256;          // empty until known (before or while sending)
    bool m_askedWithDigest = false;
    std::unique_ptr<Sha256> m_streamHash; // hashes the bytes as curl reads them
    qint64 m_bytesTotal = 0;
    qint64 m_bytesDone = 0;   // files finished, skipped or dropped
    qint64 m_bytesSent = 0;   // bytes that really went over the wire
    qint64 m_lastReported = -1;
    QVariantList m_files;
    int m_uploaded = 0, m_skipped = 0, m_failed = 0;
    Error::ErrorCode m_firstError = Error::NoError;
    QString m_firstMessage;
    QPointer<FileHasher> m_hasher;
    std::unique_ptr<JsonCall> m_call;
    std::unique_ptr<QFile> m_file;
};

} // namespace Nubra
