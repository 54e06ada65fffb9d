// SPDX-License-Identifier: MIT
#include "transfer/ResumableDownload.h"

#include "config/ClientConfig.h"
#include "http/CurlErrorMap.h"
#include "http/CurlTransfer.h"
#include "http/TransferSetup.h"
#include "transfer/BackgroundSha256.h"
#include "transfer/WritableFolder.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTimer>

Q_LOGGING_CATEGORY(lcNubraDownload, "nubra.download", QtWarningMsg)

namespace Nubra {

namespace {

// Bytes hashed per event-loop turn when a resume or a final check has to
// read a file back: big enough to be quick, small enough to keep the
// application responsive.
constexpr qint64 kHashStep = 8 * 1024 * 1024;
constexpr long kReceiveBuffer = 512 * 1024;

QJsonObject readMeta(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > 64 * 1024)
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

// "bytes START-END/TOTAL" -> start and total (-1 for "*").
bool parseContentRange(const QByteArray& value, qint64* start, qint64* total)
{
    static const QRegularExpression pattern(QStringLiteral("^bytes\\s+(\\d+)-(\\d+)/(\\d+|\\*)$"));
    const auto match = pattern.match(QString::fromLatin1(value.trimmed()));
    if (!match.hasMatch())
        return false;
    *start = match.captured(1).toLongLong();
    *total = match.captured(3) == QLatin1String("*") ? -1 : match.captured(3).toLongLong();
    return true;
}

} // namespace

ResumableDownload::ResumableDownload(CurlMultiDriver* driver, const ClientConfig& config, Options options,
                                     QObject* parent)
    : QObject(parent)
    , m_driver(driver)
    , m_config(config)
    , m_options(std::move(options))
    , m_partPath(partPathFor(m_options.targetPath))
    , m_metaPath(metaPathFor(m_options.targetPath))
    , m_total(m_options.expectedSize)
{
    // The hashing thread exists only for downloads that are verified.
    if (!m_options.expectedSha256.isEmpty())
        m_hash = std::make_unique<BackgroundSha256>();
}

ResumableDownload::~ResumableDownload()
{
    if (m_transfer)
        m_transfer->cancel();
    if (m_file.isOpen())
        m_file.close();
}

QString ResumableDownload::partPathFor(const QString& targetPath) { return targetPath + QStringLiteral(".part"); }

QString ResumableDownload::metaPathFor(const QString& targetPath)
{
    return targetPath + QStringLiteral(".part.json");
}

ResumableDownload::OnDisk ResumableDownload::inspect(const QString& targetPath)
{
    OnDisk state;
    const QFileInfo target(targetPath);
    if (target.isFile()) {
        state.received = target.size();
        state.total = target.size();
        state.complete = true;
        return state;
    }
    const QFileInfo part(partPathFor(targetPath));
    if (part.isFile()) {
        state.received = part.size();
        const QJsonObject meta = readMeta(metaPathFor(targetPath));
        if (meta.contains(QStringLiteral("total")))
            state.total = qint64(meta.value(QStringLiteral("total")).toDouble(-1));
    }
    return state;
}

void ResumableDownload::start()
{
    if (m_started)
        return;
    m_started = true;
    // Never report from inside start(): the owner connects afterwards.
    QTimer::singleShot(0, this, &ResumableDownload::begin);
}

void ResumableDownload::pause()
{
    if (m_done)
        return;
    m_paused = true;
    m_done = true;
    if (m_transfer) {
        m_transfer->cancel();
        m_transfer->deleteLater();
    }
    if (m_file.isOpen()) {
        m_file.flush();
        m_file.close();
    }
}

void ResumableDownload::begin()
{
    if (m_done)
        return;
    const QString folderProblem = prepareWritableFolder(QFileInfo(m_options.targetPath).absolutePath());
    if (!folderProblem.isEmpty()) {
        fail(Error::FileOpenFailed, folderProblem, false);
        return;
    }

    // Keep partial bytes only when they belong to this very download.
    qint64 existing = QFileInfo(m_partPath).isFile() ? QFileInfo(m_partPath).size() : 0;
    const QJsonObject meta = readMeta(m_metaPath);
    const bool sameSource = meta.value(QStringLiteral("url")).toString() == m_options.url.toString()
        && meta.value(QStringLiteral("sha256")).toString().toLatin1() == m_options.expectedSha256;
    const bool fits = m_options.expectedSize < 0 || existing <= m_options.expectedSize;
    if (existing > 0 && (!sameSource || !fits)) {
        qCInfo(lcNubraDownload).noquote() << "dropping stale partial" << m_partPath;
        existing = 0;
    }
    if (existing > 0) {
        m_validator = meta.value(QStringLiteral("validator")).toString().toLatin1();
        if (m_validator.isEmpty() || m_validator.startsWith("W/")) {
            qCInfo(lcNubraDownload).noquote() << "no strong validator for the partial file; starting over"
                                              << m_partPath;
            existing = 0;
            m_validator.clear();
        }
    }

    m_file.setFileName(m_partPath);
    // Unbuffered: what progress and the existence test report is on disk.
    if (!m_file.open(QIODevice::ReadWrite | QIODevice::Unbuffered) || !m_file.resize(existing)
        || !m_file.seek(existing)) {
        fail(Error::FileOpenFailed, QStringLiteral("cannot open %1: %2").arg(m_partPath, m_file.errorString()),
             false);
        return;
    }
    m_resumedFrom = existing;
    m_written = existing;
    if (m_hash)
        m_hash->reset();
    m_hashed = 0;
    if (existing > 0 && !m_options.expectedSha256.isEmpty()) {
        // The digest covers the whole file: read the bytes we keep first.
        if (!m_file.seek(0)) {
            fail(Error::FileReadFailed, m_file.errorString(), false);
            return;
        }
        hashPrefixStep();
        return;
    }
    startTransfer();
}

void ResumableDownload::hashPrefixStep()
{
    if (m_done)
        return;
    QByteArray buffer;
    const qint64 chunk = qMin(kHashStep, m_resumedFrom - m_hashed);
    buffer.resize(int(qMin<qint64>(chunk, 1024 * 1024)));
    qint64 left = chunk;
    while (left > 0) {
        const qint64 got = m_file.read(buffer.data(), qMin<qint64>(left, buffer.size()));
        if (got <= 0) {
            fail(Error::FileReadFailed, QStringLiteral("cannot read %1").arg(m_partPath), false);
            return;
        }
        m_hash->update(buffer.constData(), size_t(got));
        left -= got;
        m_hashed += got;
    }
    if (m_hashed < m_resumedFrom) {
        QTimer::singleShot(0, this, &ResumableDownload::hashPrefixStep);
        return;
    }
    if (!m_file.seek(m_resumedFrom)) {
        fail(Error::FileReadFailed, m_file.errorString(), false);
        return;
    }
    startTransfer();
}

void ResumableDownload::startTransfer()
{
    if (m_done)
        return;
    if (m_options.expectedSize >= 0 && m_written == m_options.expectedSize && m_written > 0) {
        // Everything is on disk already (a pause right at the end).
        finalize();
        return;
    }
    auto* transfer = new CurlTransfer(m_driver, this);
    m_transfer = transfer;
    transfer->setUrl(m_options.url);
    transfer->setMethod("GET");
    applyConfig(*transfer, m_config);
    transfer->setStallLimit(m_options.stallSeconds, m_options.minimumRate);
    transfer->setRedirectPolicy(RedirectPolicy::AnyOriginNoDowngrade);
    if (m_options.expectedSize >= 0)
        transfer->setMaxAnswerBytes(qMax<qint64>(1, m_options.expectedSize));
    transfer->setMaxReceiveSpeed(m_options.maxReceiveSpeed);
    // No Accept-Encoding goes out (CurlTransfer never sends one): byte
    // ranges of an encoded body would not be ranges of the file.
    transfer->setReceiveBufferSize(kReceiveBuffer);
    if (m_written > 0) {
        // Not CURLOPT_RESUME_FROM: curl would fail on a 200 answer, which is
        // exactly how a server tells that the file changed. begin() kept
        // the partial bytes only with a strong validator.
        transfer->addHeader("Range", "bytes=" + QByteArray::number(m_written) + '-');
        transfer->addHeader("If-Range", m_validator);
    }
    transfer->setBodySink([this](const char* data, size_t size) {
        if (!m_sawBody) {
            m_sawBody = true;
            if (!acceptFirstBytes())
                return false;
        }
        if (m_sinkError != Error::NoError)
            return false;
        const long http = m_transfer->httpStatus();
        if (http != 200 && http != 206)
            return true; // an error page: not file content, dropped
        if (m_options.expectedSize >= 0 && m_written + qint64(size) > m_options.expectedSize) {
            m_sinkError = Error::IntegrityCheckFailed;
            m_sinkMessage = QStringLiteral("the server sent more than the announced %1 bytes")
                                .arg(m_options.expectedSize);
            return false;
        }
        // A short write (the disk just filled up) is retried for the rest:
        // only a write that writes nothing sets the system's reason.
        for (qint64 done = 0; done < qint64(size);) {
            const qint64 wrote = m_file.write(data + done, qint64(size) - done);
            if (wrote <= 0) {
                m_written += done; // on disk, and resumable
                m_sinkError = Error::FileWriteFailed;
                m_sinkMessage = QStringLiteral("cannot write %1: %2").arg(m_partPath, m_file.errorString());
                return false;
            }
            done += wrote;
        }
        if (m_hash)
            m_hash->update(data, size);
        m_written += qint64(size);
        return true;
    });
    connect(transfer, &CurlTransfer::progress, this, [this] { reportProgress(); });
    connect(transfer, &CurlTransfer::completed, this, &ResumableDownload::transferCompleted);
    if (!transfer->start())
        fail(Error::RequestErrorOther, QStringLiteral("cannot start the transfer"), false);
}

// Runs inside curl's write callback for the first body bytes: decides
// whether they continue the partial file or replace it.
bool ResumableDownload::acceptFirstBytes()
{
    const long http = m_transfer->httpStatus();
    if (http == 206) {
        qint64 start = -1;
        qint64 total = -1;
        if (!parseContentRange(m_transfer->responseHeader("content-range"), &start, &total) || start != m_written) {
            m_sinkError = Error::ProtocolErrorOther;
            m_sinkMessage = QStringLiteral("server sent a range that does not continue the partial file");
            return false;
        }
        if (total >= 0)
            m_total = total;
    } else if (http == 200) {
        if (m_written > 0) {
            qCInfo(lcNubraDownload).noquote() << "file changed on the server; starting over" << m_partPath;
            if (!m_file.resize(0) || !m_file.seek(0)) {
                m_sinkError = Error::FileWriteFailed;
                m_sinkMessage = m_file.errorString();
                return false;
            }
            m_written = 0;
            m_resumedFrom = 0;
            if (m_hash)
                m_hash->reset();
        }
        const qint64 length = m_transfer->contentLength();
        if (length >= 0)
            m_total = length;
    } else {
        return true;
    }
    m_validator = strongValidatorOf(*m_transfer);
    if (!writeMeta()) {
        m_sinkError = Error::FileWriteFailed;
        return false;
    }
    return true;
}

QByteArray ResumableDownload::strongValidatorOf(const CurlTransfer& transfer)
{
    const QByteArray etag = transfer.responseHeader("etag");
    if (!etag.isEmpty() && !etag.startsWith("W/"))
        return etag;
    // A modification date is a strong validator only when the answer was
    // made at least a second after it (RFC 9110, 8.8.2.2): within the same
    // second the file could still change without changing the date.
    const QByteArray modified = transfer.responseHeader("last-modified");
    const time_t modifiedAt = curl_getdate(modified.constData(), nullptr);
    const time_t answeredAt = curl_getdate(transfer.responseHeader("date").constData(), nullptr);
    if (modifiedAt > 0 && answeredAt > 0 && answeredAt - modifiedAt >= 1)
        return modified;
    return {};
}

void ResumableDownload::transferCompleted(int curlCode)
{
    if (m_done)
        return;
    const long http = m_transfer ? m_transfer->httpStatus() : 0;
    const CurlTransfer::Failure failure = m_transfer ? m_transfer->failure(curlCode)
                                                     : CurlTransfer::Failure{Error::Cancelled, QString()};
    if (m_transfer)
        m_transfer->deleteLater();
    m_file.flush();

    // Bytes that do not continue the file, or more than the package has,
    // are not worth keeping.
    if (m_sinkError != Error::NoError) {
        fail(m_sinkError, m_sinkMessage,
             m_sinkError == Error::ProtocolErrorOther || m_sinkError == Error::IntegrityCheckFailed);
        return;
    }
    if (curlCode != CURLE_OK) {
        fail(failure.code, failure.message, failure.code == Error::IntegrityCheckFailed);
        return;
    }
    if (http == 416 && m_written > 0 && !m_restartedFromZero) {
        // Our partial file is longer than (or as long as) the server's:
        // something changed; fetch the whole file again, once.
        m_restartedFromZero = true;
        m_file.close();
        dropPartial();
        m_validator.clear();
        m_sawBody = false;
        m_total = m_options.expectedSize;
        m_started = true;
        begin();
        return;
    }
    if (http != 200 && http != 206) {
        fail(Error::HttpError, QStringLiteral("HTTP status %1 for %2").arg(http).arg(redactedUrl(m_options.url)),
             false);
        return;
    }
    if (http == 200 && !m_sawBody && m_written > 0) {
        // An empty 200 answer to a resume: the file is now empty.
        m_file.resize(0);
        m_written = 0;
        if (m_hash)
            m_hash->reset();
    }
    finalize();
}

void ResumableDownload::finalize()
{
    if (m_total >= 0 && m_written != m_total) {
        fail(Error::ConnectionClosed,
             QStringLiteral("transfer ended after %1 of %2 bytes").arg(m_written).arg(m_total), false);
        return;
    }
    if (m_options.expectedSize >= 0 && m_written != m_options.expectedSize) {
        fail(Error::IntegrityCheckFailed,
             QStringLiteral("received %1 bytes, the package has %2").arg(m_written).arg(m_options.expectedSize),
             true);
        return;
    }
    m_file.flush();
    m_file.close();
    if (m_hash) {
        m_actualSha256 = m_hash->finish();
        if (m_actualSha256 != m_options.expectedSha256) {
            fail(Error::IntegrityCheckFailed,
                 QStringLiteral("SHA-256 mismatch: expected %1, got %2")
                     .arg(QString::fromLatin1(m_options.expectedSha256), QString::fromLatin1(m_actualSha256)),
                 true);
            return;
        }
    }
    if (QFileInfo::exists(m_options.targetPath) && !QFile::remove(m_options.targetPath)) {
        fail(Error::FileWriteFailed, QStringLiteral("cannot replace %1").arg(m_options.targetPath), false);
        return;
    }
    if (!QFile::rename(m_partPath, m_options.targetPath)) {
        fail(Error::FileWriteFailed,
             QStringLiteral("cannot rename %1 to %2").arg(m_partPath, m_options.targetPath), false);
        return;
    }
    QFile::remove(m_metaPath);
    m_total = m_written;
    reportProgress();
    m_done = true;
    emit finished(Error::NoError, QString());
}

void ResumableDownload::fail(Error::ErrorCode code, const QString& message, bool drop)
{
    if (m_done)
        return;
    m_done = true;
    if (m_transfer) {
        m_transfer->cancel();
        m_transfer->deleteLater();
    }
    if (m_file.isOpen()) {
        m_file.flush();
        m_file.close();
    }
    // Nothing kept worth resuming: leave no empty partial file behind.
    if (drop || m_written == 0)
        dropPartial();
    qCWarning(lcNubraDownload).noquote() << m_options.targetPath << Error::describe(code) << message;
    emit finished(code, message);
}

bool ResumableDownload::writeMeta()
{
    // Written to a temporary file and renamed over the old record: a full
    // disk leaves the previous record whole, never an empty or cut one.
    QSaveFile meta(m_metaPath);
    const QJsonObject object{{QStringLiteral("url"), m_options.url.toString()},
                             {QStringLiteral("validator"), QString::fromLatin1(m_validator)},
                             {QStringLiteral("total"), double(m_total)},
                             {QStringLiteral("sha256"), QString::fromLatin1(m_options.expectedSha256)}};
    const QByteArray bytes = QJsonDocument(object).toJson(QJsonDocument::Compact);
    // Unbuffered, and short writes retried: a buffered QSaveFile takes a
    // short write at commit() for success and renames a cut record into
    // place.
    bool written = meta.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
    for (qint64 done = 0; written && done < bytes.size();) {
        const qint64 wrote = meta.write(bytes.constData() + done, bytes.size() - done);
        written = wrote > 0;
        done += wrote;
    }
    if (written && meta.commit())
        return true;
    m_sinkMessage = QStringLiteral("cannot write the resume record %1: %2").arg(m_metaPath, meta.errorString());
    meta.cancelWriting();
    return false;
}

void ResumableDownload::dropPartial()
{
    QFile::remove(m_partPath);
    QFile::remove(m_metaPath);
    m_written = 0;
    m_resumedFrom = 0;
}

void ResumableDownload::reportProgress() { emit progress(m_written, m_total); }

} // namespace Nubra
