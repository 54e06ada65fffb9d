// SPDX-License-Identifier: MIT
#include "transfer/FileDownloadReply.h"

#include "http/TransferSetup.h"
#include "transfer/ResumableDownload.h"

namespace Nubra {

FileDownloadReply::FileDownloadReply(const QString& name, const QUrl& url, const QString& targetPath,
                                     ResumableDownload* download, QObject* parent)
    : Reply(name, parent)
    , m_url(url.toString())
    , m_item(redactedUrl(url))
    , m_targetPath(targetPath)
    , m_download(download)
{
    download->setParent(this);
    connect(download, &ResumableDownload::progress, this, [this](qint64 received, qint64 total) {
        emit downloadProgressOfOne(m_item, received, total);
        emit downloadProgress(received, total);
    });
    connect(download, &ResumableDownload::finished, this,
            [this](Error::ErrorCode code, const QString& message) {
                if (code == Error::NoError) {
                    finishWith({{QStringLiteral("status"), QStringLiteral("success")},
                                {QStringLiteral("errorCode"), 0},
                                {QStringLiteral("result"), resultMap()}});
                    return;
                }
                emit oneErrorOccurred(m_item, code);
                failWith(code, message, {{QStringLiteral("result"), resultMap()}});
            });
    download->start();
}

QVariantMap FileDownloadReply::resultMap() const
{
    QVariantMap result{{QStringLiteral("url"), m_item}, {QStringLiteral("path"), m_targetPath}};
    if (m_download) {
        result.insert(QStringLiteral("bytesReceived"), m_download->bytesOnDisk());
        result.insert(QStringLiteral("bytesTotal"), m_download->bytesTotal());
        result.insert(QStringLiteral("resumedFrom"), m_download->resumedFrom());
    }
    return result;
}

bool FileDownloadReply::isMine(const QString& item) const
{
    return item.isEmpty() || item == m_item || item == m_url;
}

void FileDownloadReply::onStop(const QString& item)
{
    if (isFinished() || !isMine(item) || !m_download)
        return;
    m_download->pause();
    finishPausedLater([this] { return resultMap(); });
}

void FileDownloadReply::onAbort(const QString& item)
{
    if (isFinished() || !isMine(item))
        return;
    if (m_download)
        m_download->pause();
    failWith(Error::Cancelled, QStringLiteral("download aborted"), {{QStringLiteral("result"), resultMap()}});
}

} // namespace Nubra
