// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Error.h>

#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <memory>

namespace Nubra {

class ClientConfig;
class CurlMultiDriver;
class CurlTransfer;
class BackgroundSha256;

// Downloads one URL into a file, streamed to disk, resumable.
//
// The bytes go to "<target>.part"; a sidecar "<target>.part.json" keeps what
// a later resume needs (URL, validator, total, expected digest). The target
// itself appears only by renaming a complete (and, when a digest is given,
// verified) partial file, so a failed or interrupted download never leaves
// a file that looks complete.
//
// A resume sends "Range: bytes=N-" with "If-Range: <validator>", where the
// validator is the strong one seen when the partial bytes were fetched (an
// ETag not marked weak, else a Last-Modified at least a second older than
// the answer's Date). Without one the download starts over: a Range alone
// would splice two versions of a file that changed. A server that answers
// 200 instead of 206 has a different file: the partial bytes are dropped and
// the download starts over from the new body.
//
// A known size is a bound: a server that sends more fails the download at
// once (IntegrityCheckFailed) and nothing past the size reaches the disk.
//
// finished() comes exactly once after start(), never from inside start(),
// unless pause() or cancel() came first (the owner then reports itself).
class ResumableDownload : public QObject {
    Q_OBJECT
public:
    struct Options {
        QUrl url;
        QString targetPath;
        // -1: unknown. A known size must match the bytes received.
        qint64 expectedSize = -1;
        // Lower-case hex SHA-256 the complete file must have; empty: none.
        QByteArray expectedSha256;
        // Abort (TimedOut) when fewer than minimumRate bytes/s moved on
        // average over this many seconds (0: never).
        int stallSeconds = 30;
        qint64 minimumRate = 1024;
        qint64 maxReceiveSpeed = 0;
    };

    ResumableDownload(CurlMultiDriver* driver, const ClientConfig& config, Options options,
                      QObject* parent = nullptr);
    ~ResumableDownload() override;

    static QString partPathFor(const QString& targetPath);
    static QString metaPathFor(const QString& targetPath);
    // Bytes of a partial download on disk for targetPath and the total
    // recorded with them (-1 when unknown). A complete target counts fully.
    struct OnDisk {
        qint64 received = 0;
        qint64 total = -1;
        bool complete = false;
    };
    static OnDisk inspect(const QString& targetPath);

    void start();
    // Stops the transfer and keeps the partial bytes; no finished().
    void pause();

    qint64 bytesOnDisk() const { return m_written; }
    qint64 bytesTotal() const { return m_total; }
    // Where this run started (0 unless it resumed).
    qint64 resumedFrom() const { return m_resumedFrom; }
    QString actualSha256() const { return QString::fromLatin1(m_actualSha256); }

signals:
    void progress(qint64 received, qint64 total);
    // code NoError: the target is complete (and verified) on disk.
    void finished(Nubra::Error::ErrorCode code, const QString& message);

private:
    void begin();
    void hashPrefixStep();
    void startTransfer();
    bool acceptFirstBytes();
    void transferCompleted(int curlCode);
    void finalize();
    void verifyStep();
    void fail(Error::ErrorCode code, const QString& message, bool dropPartial);
    bool writeMeta();
    static QByteArray strongValidatorOf(const CurlTransfer& transfer);
    void dropPartial();
    void reportProgress();

    CurlMultiDriver* m_driver;
    const ClientConfig& m_config;
    Options m_options;
    QString m_partPath;
    QString m_metaPath;
    QFile m_file;
    std::unique_ptr<BackgroundSha256> m_hash;
    QPointer<CurlTransfer> m_transfer;
    QByteArray m_validator;
    QByteArray m_actualSha256;
    qint64 m_written = 0;
    qint64 m_total = -1;
    qint64 m_resumedFrom = 0;
    qint64 m_hashed = 0;
    bool m_started = false;
    bool m_done = false;
    bool m_paused = false;
    bool m_sawBody = false;
    bool m_restartedFromZero = false;
    Error::ErrorCode m_sinkError = Error::NoError;
    QString m_sinkMessage;
};

} // namespace Nubra
