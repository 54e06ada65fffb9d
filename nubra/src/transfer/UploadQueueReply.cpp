// SPDX-License-Identifier: MIT
#include "transfer/UploadQueueReply.h"

#include "config/ClientConfig.h"
#include "http/JsonCall.h"
#include "http/TransferSetup.h"
#include "transfer/FileHasher.h"
#include "transfer/Sha256.h"

#include <QTimer>
#include <QFileInfo>

namespace Nubra {

namespace {

const QString kDefaultUploadPath = QStringLiteral("/api/v1/disk/upload");
const QString kDefaultExistsPath = QStringLiteral("/api/v1/disk/file-exists");

const char* outcomeName(int outcome)
{
    static const char* const names[] = {"uploaded", "skipped", "failed", "cancelled"};
    return names[outcome];
}

} // namespace

UploadQueueReply::UploadQueueReply(const ClientContext& context, std::vector<UploadItem> batch,
                                   std::shared_ptr<Queue> queue, int stallSeconds, QObject* parent)
    : Reply(QStringLiteral("startUpload:start"), parent)
    , m_context(context)
    , m_batch(std::move(batch))
    , m_queue(std::move(queue))
    , m_stallSeconds(stallSeconds)
{
    for (const UploadItem& item : m_batch)
        m_bytesTotal += item.size;
}

UploadQueueReply::~UploadQueueReply() { stopWork(); }

void UploadQueueReply::begin()
{
    // Nothing may be emitted before the caller had a chance to connect.
    QTimer::singleShot(0, this, &UploadQueueReply::nextItem);
}

void UploadQueueReply::nextItem()
{
    if (isFinished())
        return;
    if (m_index >= m_batch.size()) {
        finishBatch();
        return;
    }
    m_sha256.clear();
    UploadItem& item = m_batch[m_index];
    const QFileInfo info(item.path);
    if (!info.isFile()) {
        itemDone(Outcome::Failed, {}, Error::FileOpenFailed, QStringLiteral("file %1 is gone").arg(item.path));
        return;
    }
    // The file may have changed since it was queued: upload what is there now.
    m_bytesTotal += info.size() - item.size;
    item.size = info.size();
    checkExists(false);
}

void UploadQueueReply::hashFirst()
{
    auto* hasher = new FileHasher(m_batch[m_index].path, this);
    m_hasher = hasher;
    connect(hasher, &FileHasher::hashed, this, &UploadQueueReply::hashed);
    connect(hasher, &FileHasher::failed, this,
            [this](const QString& message) { itemDone(Outcome::Failed, {}, Error::FileReadFailed, message); });
    hasher->start();
}

void UploadQueueReply::hashed(const QString& sha256, qint64 size)
{
    if (m_hasher)
        m_hasher->deleteLater();
    UploadItem& item = m_batch[m_index];
    m_bytesTotal += size - item.size;
    item.size = size;
    m_sha256 = sha256;
    checkExists(true);
}

JsonCall& UploadQueueReply::newCall(const QString& path, const QVariantMap& query, const QByteArray& method,
                                    bool jsonBody)
{
    m_call = std::make_unique<JsonCall>(m_context.curl);
    JsonCall& call = *m_call;
    call.setUrl(m_batch[m_index].baseUrl, path, query);
    call.transfer().setMethod(method);
    applyConfig(call.transfer(), *m_context.config);
    call.transfer().setStallLimit(m_stallSeconds, m_context.config->minimumRate());
    call.transfer().addHeader("X-Upload-Token", m_batch[m_index].uploadToken.toUtf8());
    call.setJsonHeaders(jsonBody);
    return call;
}

void UploadQueueReply::checkExists(bool withDigest)
{
    const UploadItem& item = m_batch[m_index];
    m_askedWithDigest = withDigest;
    const QVariantMap disk = m_context.config->section(QStringLiteral("disk"));
    QString path = kDefaultExistsPath;
    if (const auto route = m_context.config->route(disk.value(QStringLiteral("existsRequest")).toString()))
        path = route->path;
    QVariantMap body{{QStringLiteral("size"), item.size}};
    if (withDigest)
        body.insert(QStringLiteral("sha256"), m_sha256);
    if (item.spaceId >= 0)
        body.insert(QStringLiteral("spaceId"), item.spaceId);

    JsonCall& call = newCall(path, {}, "POST", true);
    call.setJsonBody(body);
    call.transfer().setTimeoutMs(m_context.config->defaultTimeoutMs());
    call.setAnswerHandler([this](const JsonCall::Answer& answer) { existsAnswered(answer); });
    if (!call.start())
        itemDone(Outcome::Failed, {}, Error::RequestErrorOther, QStringLiteral("cannot start HTTP transfer"));
}

// Reads the cloud's answer: JsonCall's rule, then the cloud's own
// "status", "code" and "message". On failure fills code and message.
static bool readAnswer(const JsonCall::Answer& answer, QVariantMap* result, Error::ErrorCode* code,
                       QString* message, QVariantMap* details)
{
    details->insert(QStringLiteral("httpStatus"), answer.httpStatus);
    if (!JsonCall::cloudSucceeded(answer, code, message)) {
        if (answer.code == Error::NoError)
            details->insert(QStringLiteral("serverCode"), answer.object.value(QStringLiteral("code")));
        return false;
    }
    *result = answer.object.value(QStringLiteral("result")).toMap();
    return true;
}

void UploadQueueReply::existsAnswered(const JsonCall::Answer& answer)
{
    QVariantMap result, details;
    Error::ErrorCode code = Error::NoError;
    QString message;
    if (!readAnswer(answer, &result, &code, &message, &details)) {
        itemDone(Outcome::Failed, details, code, message);
        return;
    }
    if (!m_askedWithDigest && result.value(QStringLiteral("sameSize")).toLongLong() > 0) {
        // A file of that size is there: only the digest can tell.
        m_call.reset();
        hashFirst();
        return;
    }
    if (m_askedWithDigest && result.value(QStringLiteral("exists")).toBool()) {
        details.insert(QStringLiteral("fileId"), result.value(QStringLiteral("fileId")));
        details.insert(QStringLiteral("spaceId"), result.value(QStringLiteral("space")).toMap().value(QStringLiteral("spaceId")));
        itemDone(Outcome::Skipped, details);
        return;
    }
    m_call.reset();
    sendFile();
}

void UploadQueueReply::sendFile()
{
    const UploadItem& item = m_batch[m_index];
    m_file = std::make_unique<QFile>(item.path);
    if (!m_file->open(QIODevice::ReadOnly)) {
        itemDone(Outcome::Failed, {}, Error::FileOpenFailed,
                 QStringLiteral("cannot open %1: %2").arg(item.path, m_file->errorString()));
        return;
    }
    const QVariantMap disk = m_context.config->section(QStringLiteral("disk"));
    const QString path = disk.value(QStringLiteral("uploadPath"), kDefaultUploadPath).toString();
    QVariantMap query{{QStringLiteral("name"), item.name}};
    if (item.spaceId >= 0)
        query.insert(QStringLiteral("spaceId"), item.spaceId);

    JsonCall& call = newCall(path, query, "PUT", false);
    CurlTransfer* transfer = &call.transfer();
    transfer->addHeader("Content-Type", "application/octet-stream");
    if (!m_sha256.isEmpty())
        transfer->addHeader("X-Content-Sha256", m_sha256.toLatin1());
    // Straight from disk into curl's buffer: the file is never held whole.
    // Without a digest yet, it is computed from the same bytes on the way.
    QFile* file = m_file.get();
    Sha256* hash = nullptr;
    if (m_sha256.isEmpty()) {
        m_streamHash = std::make_unique<Sha256>();
        hash = m_streamHash.get();
    }
    transfer->setBodySource(
        [file, hash](char* buffer, size_t size) -> size_t {
            const qint64 n = file->read(buffer, qint64(size));
            if (n < 0)
                return size_t(CURL_READFUNC_ABORT);
            if (hash)
                hash->update(buffer, size_t(n));
            return size_t(n);
        },
        item.size);
    connect(transfer, &CurlTransfer::progress, this,
            [this](qint64, qint64, qint64 sent, qint64) { reportProgress(sent); });
    call.setAnswerHandler([this](const JsonCall::Answer& answer) { sendCompleted(answer); });
    if (!call.start())
        itemDone(Outcome::Failed, {}, Error::RequestErrorOther, QStringLiteral("cannot start HTTP transfer"));
}

void UploadQueueReply::sendCompleted(const JsonCall::Answer& answer)
{
    QVariantMap result, details;
    Error::ErrorCode code = Error::NoError;
    QString message;
    if (!readAnswer(answer, &result, &code, &message, &details)) {
        itemDone(Outcome::Failed, details, code, message);
        return;
    }
    m_bytesSent += m_batch[m_index].size;
    if (m_streamHash)
        m_sha256 = QString::fromLatin1(m_streamHash->hexDigest());
    if (result.value(QStringLiteral("sha256")).toString() != m_sha256 ||
        result.value(QStringLiteral("size")).toLongLong() != m_batch[m_index].size) {
        itemDone(Outcome::Failed, result, Error::IntegrityCheckFailed,
                 QStringLiteral("server stored %1 bytes with SHA-256 %2, sent %3 bytes with %4")
                     .arg(result.value(QStringLiteral("size")).toLongLong())
                     .arg(result.value(QStringLiteral("sha256")).toString())
                     .arg(m_batch[m_index].size)
                     .arg(m_sha256));
        return;
    }
    details.insert(QStringLiteral("fileId"), result.value(QStringLiteral("fileId")));
    details.insert(QStringLiteral("spaceId"), result.value(QStringLiteral("spaceId")));
    itemDone(Outcome::Uploaded, details);
}

void UploadQueueReply::itemDone(Outcome outcome, const QVariantMap& details, Error::ErrorCode code,
                                const QString& message)
{
    const UploadItem item = m_batch[m_index];
    stopWork();
    QVariantMap entry = details;
    entry.insert(QStringLiteral("path"), item.path);
    entry.insert(QStringLiteral("name"), item.name);
    entry.insert(QStringLiteral("size"), item.size);
    entry.insert(QStringLiteral("sha256"), m_sha256);
    entry.insert(QStringLiteral("status"), QString::fromLatin1(outcomeName(int(outcome))));
    if (outcome == Outcome::Failed) {
        entry.insert(QStringLiteral("errorCode"), int(code));
        entry.insert(QStringLiteral("message"), message);
    }
    m_files.append(entry);
    ++m_index;
    m_bytesDone += item.size;
    switch (outcome) {
    case Outcome::Uploaded: ++m_uploaded; break;
    case Outcome::Skipped: ++m_skipped; break;
    case Outcome::Cancelled: break;
    case Outcome::Failed:
        ++m_failed;
        if (m_firstError == Error::NoError) {
            m_firstError = code;
            m_firstMessage = message;
        }
        emit oneErrorOccurred(item.path, code);
        break;
    }
    reportProgress(0);
    // Next file on a fresh loop turn: we may be inside a transfer's signal.
    QTimer::singleShot(0, this, &UploadQueueReply::nextItem);
}

void UploadQueueReply::reportProgress(qint64 sentOfCurrent)
{
    const qint64 value = qMin(m_bytesDone + sentOfCurrent, m_bytesTotal);
    if (value == m_lastReported)
        return;
    m_lastReported = value;
    emit uploadProgress(value, m_bytesTotal);
}

QVariantMap UploadQueueReply::summary() const
{
    QVariantList remaining;
    for (size_t i = m_index; i < m_batch.size(); ++i)
        remaining.append(m_batch[i].path);
    return {{QStringLiteral("files"), m_files},
            {QStringLiteral("uploaded"), m_uploaded},
            {QStringLiteral("skipped"), m_skipped},
            {QStringLiteral("failed"), m_failed},
            {QStringLiteral("bytesTotal"), m_bytesTotal},
            {QStringLiteral("bytesSent"), m_bytesSent},
            {QStringLiteral("remaining"), remaining}};
}

void UploadQueueReply::finishBatch()
{
    if (m_failed == 0) {
        finishWith({{QStringLiteral("status"), QStringLiteral("success")}, {QStringLiteral("result"), summary()}});
        return;
    }
    failWith(m_firstError,
             QStringLiteral("%1 of %2 files failed; first: %3").arg(m_failed).arg(m_batch.size()).arg(m_firstMessage),
             {{QStringLiteral("result"), summary()}});
}

void UploadQueueReply::stopWork()
{
    if (m_hasher) {
        m_hasher->disconnect(this);
        m_hasher->deleteLater();
        m_hasher = nullptr;
    }
    m_call.reset();
    m_file.reset();
    m_streamHash.reset();
}

int UploadQueueReply::cancelForClear()
{
    if (isFinished())
        return 0;
    stopWork();
    const int unfinished = int(m_batch.size() - m_index);
    failWith(Error::Cancelled, QStringLiteral("upload queue cleared"), {{QStringLiteral("result"), summary()}});
    return unfinished;
}

void UploadQueueReply::onAbort(const QString& item)
{
    if (isFinished())
        return;
    if (item.isEmpty()) {
        stopWork();
        failWith(Error::Cancelled, QStringLiteral("upload cancelled"), {{QStringLiteral("result"), summary()}});
        return;
    }
    if (m_index < m_batch.size() && m_batch[m_index].path == item) {
        itemDone(Outcome::Cancelled, {});
        return;
    }
    for (size_t i = m_index + 1; i < m_batch.size(); ++i) {
        if (m_batch[i].path == item) {
            m_bytesTotal -= m_batch[i].size;
            m_batch.erase(m_batch.begin() + long(i));
            return;
        }
    }
}

void UploadQueueReply::onStop(const QString& item)
{
    if (isFinished())
        return;
    if (!item.isEmpty()) {
        // One file paused: it goes back to the queue for a later start.
        for (size_t i = m_index; i < m_batch.size(); ++i)
            if (m_batch[i].path == item)
                m_queue->push_back(m_batch[i]);
        onAbort(item);
        return;
    }
    stopWork();
    m_queue->insert(m_queue->begin(), m_batch.begin() + long(m_index), m_batch.end());
    finishWith({{QStringLiteral("status"), QStringLiteral("stopped")}, {QStringLiteral("result"), summary()}});
}

} // namespace Nubra
