// SPDX-License-Identifier: MIT
#pragma once

#include <Nubra/Reply.h>

#include <QPointer>

namespace Nubra {

class ResumableDownload;

// Reply of "startDownload": one file fetched into place by a
// ResumableDownload. stop() pauses (the partial file stays for the next
// start of the same download) and the reply then finishes with status
// "paused"; abort() cancels with Cancelled and also keeps the partial file.
class FileDownloadReply : public Reply {
    Q_OBJECT
public:
    // The item name in signals and the result is the URL without its user
    // information and query values (redactedUrl): the helper writes it into
    // its log at every progress report. stop(item) and abort(item) accept
    // that name or the URL as given.
    FileDownloadReply(const QString& name, const QUrl& url, const QString& targetPath, ResumableDownload* download,
                      QObject* parent);

    QString targetPath() const { return m_targetPath; }

protected:
    void onStop(const QString& item) override;
    void onAbort(const QString& item) override;

private:
    QVariantMap resultMap() const;

    bool isMine(const QString& item) const;

    QString m_url;
    QString m_item;
    QString m_targetPath;
    QPointer<ResumableDownload> m_download;
};

} // namespace Nubra
