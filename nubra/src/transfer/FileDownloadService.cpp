// SPDX-License-Identifier: MIT
#include "transfer/FileDownloadService.h"

#include "config/ClientConfig.h"
#include "core/LocalReply.h"
#include "http/TransferSetup.h"
#include "transfer/FileDownloadReply.h"
#include "transfer/ResumableDownload.h"

#include <Nubra/Manager.h>

#include <QDir>
#include <QFileInfo>
#include <QUrl>

namespace Nubra {

FileDownloadService::FileDownloadService(const ClientContext& context)
    : m_context(context)
{
}

bool FileDownloadService::handles(const QString& name) const { return name == QLatin1String("startDownload"); }

QString FileDownloadService::destinationFor(const QUrl& url, const QString& path)
{
    if (path.isEmpty())
        return {};
    const bool folder = path.endsWith(QLatin1Char('/')) || QFileInfo(path).isDir();
    if (!folder)
        return QDir::cleanPath(path);
    const QString name = url.fileName();
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return {};
    return QDir::cleanPath(path + QLatin1Char('/') + name);
}

Reply* FileDownloadService::start(const RequestContext& request)
{
    QObject* parent = m_context.manager;
    // The helper sends the record as the body itself; a "body" map is
    // accepted too for callers that wrap it.
    QVariantMap body = request.record;
    if (!body.contains(QStringLiteral("urls")) && body.value(QStringLiteral("body")).userType() == QMetaType::QVariantMap)
        body = body.value(QStringLiteral("body")).toMap();
    const QVariant urlsValue = body.value(QStringLiteral("urls"));
    if (urlsValue.userType() != QMetaType::QString) {
        return LocalReply::refused(request.name, Error::InvalidArgument,
                                   QStringLiteral("\"urls\" must be one URL as a string"), parent);
    }
    const QUrl url(urlsValue.toString(), QUrl::StrictMode);
    const QString refusal = webUrlProblem(url);
    if (!refusal.isEmpty())
        return LocalReply::refused(request.name, Error::InvalidArgument, QStringLiteral("\"urls\": ") + refusal, parent);
    const QString target = destinationFor(url, body.value(QStringLiteral("path")).toString());
    if (target.isEmpty()) {
        return LocalReply::refused(request.name, Error::InvalidArgument,
                                   QStringLiteral("\"path\" must name a file, or a folder for a URL that ends "
                                                  "in a file name"),
                                   parent);
    }
    // Two downloads into one file would interleave their bytes.
    for (QObject* child : parent->children()) {
        auto* running = qobject_cast<FileDownloadReply*>(child);
        if (running && !running->isFinished() && running->targetPath() == target)
            return LocalReply::refused(request.name, Error::Busy,
                                       QStringLiteral("%1 is already being downloaded").arg(target), parent);
    }

    ResumableDownload::Options options;
    options.url = url;
    options.targetPath = target;
    options.stallSeconds = m_context.config->stallSeconds();
    options.minimumRate = m_context.config->minimumRate();
    auto* download = new ResumableDownload(m_context.curl, *m_context.config, options);
    return new FileDownloadReply(request.name, url, target, download, parent);
}

} // namespace Nubra
