#pragma once

#include "core/Service.h"
#include "transfer/UploadItem.h"

#include <Nubra/Reply.h>

#include <QFile>
#include <QPointer>
#include <QVariantList>

#include <deque>
#include <memory>

namespace Nubra {

class CurlTransfer;
class FileHasher;

// Reply of "startUpload:start": uploads a batch of queued files one after
// the other. For each file: SHA-256 from disk, ask the server whether the
// target space already holds a file of that size and digest (then it is
// skipped), else stream it from disk.
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
    void hashed(const QString& sha256, qint64 size);
    void checkExists();
    void existsAnswered(int curlCode);
    void sendFile();
    void sendCompleted(int curlCode);
    void itemDone(Outcome outcome, const QVariantMap& details, Error::ErrorCode code = Error::NoError,
                  const QString& message = QString());
    void finishBatch();
    void stopWork();
    CurlTransfer* newTransfer(const QUrl& url, const QByteArray& method);
    void reportProgress(qint64 sentOfCurrent);
    QVariantMap summary() const;

    ClientContext m_context;
    std::vector<UploadItem> m_batch;
    std::shared_ptr<Queue> m_queue;
    int m_stallSeconds;
    size_t m_index = 0;
    QString m_sha256;
    qint64 m_bytesTotal = 0;
    qint64 m_bytesDone = 0;   // files finished, skipped or dropped
    qint64 m_bytesSent = 0;   // bytes that really went over the wire
    qint64 m_lastReported = -1;
    QVariantList m_files;
    int m_uploaded = 0, m_skipped = 0, m_failed = 0;
    Error::ErrorCode m_firstError = Error::NoError;
    QString m_firstMessage;
    QPointer<FileHasher> m_hasher;
    QPointer<CurlTransfer> m_transfer;
    QByteArray m_answer;
    std::unique_ptr<QFile> m_file;
};

} // namespace Nubra
