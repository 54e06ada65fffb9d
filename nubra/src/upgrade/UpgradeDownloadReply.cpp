// SPDX-License-Identifier: MIT
#include "upgrade/UpgradeDownloadReply.h"

#include "config/ClientConfig.h"
#include "http/TransferSetup.h"
#include "transfer/ResumableDownload.h"
#include "upgrade/CloudJsonCall.h"
#include "upgrade/PackageSignature.h"

#include <QFileInfo>

namespace Nubra {

UpgradeDownloadReply::UpgradeDownloadReply(const QString& name, const ClientContext& context, QList<Item> items,
                                           QObject* parent)
    : Reply(name, parent)
    , m_context(context)
    , m_items(std::move(items))
{
    QMetaObject::invokeMethod(this, &UpgradeDownloadReply::startItem, Qt::QueuedConnection);
}

QStringList UpgradeDownloadReply::targetPaths() const
{
    QStringList paths;
    for (const Item& item : m_items)
        paths.append(item.targetPath);
    return paths;
}

void UpgradeDownloadReply::startItem()
{
    if (isFinished())
        return;
    ++m_current;
    if (m_current >= m_items.size()) {
        finishWith({{QStringLiteral("status"), QStringLiteral("success")},
                    {QStringLiteral("errorCode"), 0},
                    {QStringLiteral("result"), resultMap()}});
        return;
    }
    const Item& item = m_items.at(m_current);
    m_sha256.clear();
    m_signedBy.clear();
    m_total = -1;
    const QVariantMap body{{QStringLiteral("modelCode"), item.registration.modelCode},
                           {QStringLiteral("version"), item.version},
                           {QStringLiteral("osType"), item.registration.osType},
                           {QStringLiteral("langType"), item.registration.langType}};
    auto* call = new CloudJsonCall(m_context, QStringLiteral("upgradePackage"),
                                   QStringLiteral("/api/v1/upgrade/package"), body, this);
    m_call = call;
    connect(call, &CloudJsonCall::done, this, &UpgradeDownloadReply::packageKnown);
    call->start();
}

void UpgradeDownloadReply::packageKnown(Error::ErrorCode code, const QString& message, const QVariantMap& package)
{
    if (m_call)
        m_call->deleteLater();
    if (isFinished())
        return;
    if (code != Error::NoError) {
        if (m_call)
            setHttpStatus(m_call->httpStatus());
        itemFinished(code, message);
        return;
    }
    const Item& item = m_items.at(m_current);
    m_sha256 = package.value(QStringLiteral("sha256")).toString().toLower();
    bool sizeOk = false;
    m_total = package.value(QStringLiteral("packageSize")).toLongLong(&sizeOk);
    const QUrl url = CloudJsonCall::resolve(m_context, package.value(QStringLiteral("url")).toString());
    if (m_sha256.size() != 64 || !sizeOk || m_total < 0 || !url.isValid() || url.isEmpty()) {
        itemFinished(Error::InvalidResponse,
                     QStringLiteral("the cloud's package entry lacks a valid sha256, packageSize or url"));
        return;
    }
    // A URL from the cloud names any scheme it likes; only http(s) is
    // fetched, before any connection is made.
    const QString urlProblem = webUrlProblem(url);
    if (!urlProblem.isEmpty()) {
        itemFinished(Error::InvalidArgument, QStringLiteral("the cloud's package URL: ") + urlProblem);
        return;
    }
    // With pinned keys, before any byte is fetched. The model and version
    // are the ones asked for, not the entry's own: a signature made for
    // another package does not fit this one.
    const auto verdict = PackageSignature::checkPackage(
        m_context.config->section(QStringLiteral("upgrade")).value(QStringLiteral("signingKeys")),
        {item.registration.modelCode, item.version, m_total, m_sha256},
        package.value(QStringLiteral("signature")).toString());
    if (verdict.code != Error::NoError) {
        itemFinished(verdict.code, verdict.message);
        return;
    }
    m_signedBy = verdict.signedBy;

    ResumableDownload::Options options;
    options.url = url;
    options.targetPath = item.targetPath;
    options.expectedSize = m_total;
    options.expectedSha256 = m_sha256.toLatin1();
    options.stallSeconds = m_context.config->stallSeconds();
    options.minimumRate = m_context.config->minimumRate();
    auto* download = new ResumableDownload(m_context.curl, *m_context.config, options, this);
    m_download = download;
    const QString itemName = QFileInfo(item.targetPath).fileName();
    connect(download, &ResumableDownload::progress, this, [this, itemName](qint64 received, qint64 total) {
        emit downloadProgressOfOne(itemName, received, total);
        emit downloadProgress(received, total);
    });
    connect(download, &ResumableDownload::finished, this, &UpgradeDownloadReply::itemFinished);
    download->start();
}

void UpgradeDownloadReply::itemFinished(Error::ErrorCode code, const QString& message)
{
    if (isFinished())
        return;
    const Item& item = m_items.at(m_current);
    if (code != Error::NoError) {
        emit oneErrorOccurred(QFileInfo(item.targetPath).fileName(), code);
        failWith(code, message, {{QStringLiteral("result"), resultMap()}});
        return;
    }
    m_done.append(QVariantMap{{QStringLiteral("modelCode"), item.registration.modelCode},
                              {QStringLiteral("version"), item.version},
                              {QStringLiteral("path"), item.targetPath},
                              {QStringLiteral("sha256"), m_sha256},
                              {QStringLiteral("signedBy"), m_signedBy},
                              {QStringLiteral("bytesTotal"), m_total},
                              {QStringLiteral("resumedFrom"), m_download ? m_download->resumedFrom() : 0}});
    if (m_download)
        m_download->deleteLater();
    startItem();
}

QVariantMap UpgradeDownloadReply::resultMap() const
{
    QVariantMap result;
    if (m_current >= 0 && m_current < m_items.size()) {
        const Item& item = m_items.at(m_current);
        result.insert(QStringLiteral("modelCode"), item.registration.modelCode);
        result.insert(QStringLiteral("version"), item.version);
        result.insert(QStringLiteral("path"), item.targetPath);
        const auto onDisk = ResumableDownload::inspect(item.targetPath);
        result.insert(QStringLiteral("bytesReceived"), onDisk.received);
        result.insert(QStringLiteral("bytesTotal"), m_total >= 0 ? m_total : onDisk.total);
    } else if (!m_done.isEmpty()) {
        const QVariantMap last = m_done.last().toMap();
        for (const QString& key : {QStringLiteral("modelCode"), QStringLiteral("version"), QStringLiteral("path"),
                                   QStringLiteral("sha256"), QStringLiteral("signedBy"), QStringLiteral("resumedFrom")})
            result.insert(key, last.value(key));
        result.insert(QStringLiteral("bytesReceived"), last.value(QStringLiteral("bytesTotal")));
        result.insert(QStringLiteral("bytesTotal"), last.value(QStringLiteral("bytesTotal")));
    }
    result.insert(QStringLiteral("packages"), m_done);
    return result;
}

void UpgradeDownloadReply::halt()
{
    if (m_call)
        m_call->cancel();
    if (m_download)
        m_download->pause();
}

void UpgradeDownloadReply::onStop(const QString& item)
{
    if (isFinished() || !item.isEmpty())
        return;
    halt();
    finishPausedLater([this] { return resultMap(); });
}

void UpgradeDownloadReply::onAbort(const QString& item)
{
    if (isFinished() || !item.isEmpty())
        return;
    halt();
    failWith(Error::Cancelled, QStringLiteral("download aborted"), {{QStringLiteral("result"), resultMap()}});
}

} // namespace Nubra
