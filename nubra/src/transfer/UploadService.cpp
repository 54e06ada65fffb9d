// SPDX-License-Identifier: MIT
#include "transfer/UploadService.h"

#include "config/ClientConfig.h"
#include "core/LocalReply.h"

#include <Nubra/Manager.h>

#include <QFileInfo>

namespace Nubra {

namespace {

const QString kEnqueue = QStringLiteral("UploadCloudSpaceFile");
const QString kStart = QStringLiteral("startUpload:start");
const QString kRemoveAll = QStringLiteral("startUpload:removeAll");

// Queue parameters may sit at the top level of the record (the upload
// controls arrive as a bare parameter map), under "params" or under "body";
// later layers win.
QVariantMap flattenArguments(const QVariantMap& record)
{
    QVariantMap args = record;
    for (const QString& layer : {QStringLiteral("params"), QStringLiteral("body")}) {
        const QVariantMap map = record.value(layer).toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            args.insert(it.key(), it.value());
    }
    return args;
}

QString uploadTokenOf(const QVariantMap& record, const QVariantMap& args)
{
    QString token = args.value(QStringLiteral("uploadToken")).toString();
    if (token.isEmpty())
        token = record.value(QStringLiteral("headers")).toMap().value(QStringLiteral("X-Upload-Token")).toString();
    return token;
}

QVariantList queueListing(const UploadQueueReply::Queue& queue, qint64* bytes)
{
    QVariantList list;
    *bytes = 0;
    for (const UploadItem& item : queue) {
        list.append(QVariantMap{{QStringLiteral("path"), item.path}, {QStringLiteral("size"), item.size}});
        *bytes += item.size;
    }
    return list;
}

} // namespace

UploadService::UploadService(const ClientContext& context)
    : m_context(context)
    , m_queue(std::make_shared<UploadQueueReply::Queue>())
{
}

bool UploadService::handles(const QString& name) const
{
    return name == kEnqueue || name == kStart || name == kRemoveAll;
}

Reply* UploadService::start(const RequestContext& request)
{
    if (request.name == kEnqueue)
        return enqueue(request);
    if (request.name == kStart)
        return startQueue(request);
    return removeAll(request);
}

Reply* UploadService::enqueue(const RequestContext& request)
{
    QObject* parent = m_context.manager;
    const QVariantMap args = flattenArguments(request.record);
    QStringList paths;
    const QVariant files = args.value(QStringLiteral("files"));
    if (files.userType() == QMetaType::QString)
        paths << files.toString();
    else
        for (const QVariant& v : files.toList())
            paths << v.toString();
    if (paths.isEmpty())
        return LocalReply::failing(request.name, Error::InvalidArgument,
                                   QStringLiteral("\"files\" must name at least one file"), parent);
    const QString token = uploadTokenOf(request.record, args);
    if (token.isEmpty())
        return LocalReply::failing(request.name, Error::InvalidArgument,
                                   QStringLiteral("\"uploadToken\" is required (from sdkDynamicEncodeToken)"), parent);
    const auto base = m_context.config->baseUrl(request.extra);
    if (!base)
        return LocalReply::failing(request.name, request.extra.isEmpty() ? Error::NotConfigured : Error::InvalidArgument,
                                   request.extra.isEmpty() ? QStringLiteral("no \"baseUrl\" configured")
                                                           : QStringLiteral("unknown region \"%1\"").arg(request.extra),
                                   parent);
    bool spaceOk = true;
    const qint64 spaceId = args.contains(QStringLiteral("spaceId"))
                               ? args.value(QStringLiteral("spaceId")).toLongLong(&spaceOk)
                               : -1;
    if (!spaceOk || (args.contains(QStringLiteral("spaceId")) && spaceId < 0))
        return LocalReply::failing(request.name, Error::InvalidArgument,
                                   QStringLiteral("\"spaceId\" must be a space number"), parent);

    // All or nothing: one unreadable file refuses the whole call, so the
    // caller never has to find out which part of a list got queued.
    std::vector<UploadItem> items;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (path.isEmpty() || !info.isFile() || !info.isReadable())
            return LocalReply::failing(request.name, Error::FileOpenFailed,
                                       QStringLiteral("not a readable file: \"%1\"").arg(path), parent);
        items.push_back({info.absoluteFilePath(), info.fileName(), info.size(), *base, token, spaceId});
    }
    m_queue->insert(m_queue->end(), items.begin(), items.end());

    qint64 bytes = 0;
    const QVariantList queued = queueListing(*m_queue, &bytes);
    return LocalReply::succeeding(request.name,
                                  {{QStringLiteral("status"), QStringLiteral("success")},
                                   {QStringLiteral("result"),
                                    QVariantMap{{QStringLiteral("queued"), int(items.size())},
                                                {QStringLiteral("queueLength"), queued.size()},
                                                {QStringLiteral("queueBytes"), bytes},
                                                {QStringLiteral("queue"), queued}}}},
                                  parent);
}

Reply* UploadService::startQueue(const RequestContext& request)
{
    QObject* parent = m_context.manager;
    if (m_running && !m_running->isFinished())
        return LocalReply::refused(request.name, Error::Busy, QStringLiteral("an upload batch is already running"),
                                   parent);
    // A fresh token given to the start replaces the queued ones (tokens
    // expire while files wait).
    const QVariantMap args = flattenArguments(request.record);
    const QString token = uploadTokenOf(request.record, args);
    std::vector<UploadItem> batch(m_queue->begin(), m_queue->end());
    m_queue->clear();
    if (!token.isEmpty())
        for (UploadItem& item : batch)
            item.uploadToken = token;
    // "timeout" bounds a stall (no byte moved), not the batch: hundreds of
    // MiB may rightly take longer than any fixed time-out.
    const int stallMs = ClientConfig::timeoutToMs(request.options.value(QStringLiteral("timeout")),
                                                  m_context.config->stallSeconds() * 1000);
    auto* reply = new UploadQueueReply(m_context, std::move(batch), m_queue, qMax(1, stallMs / 1000), parent);
    m_running = reply;
    reply->begin();
    return reply;
}

Reply* UploadService::removeAll(const RequestContext& request)
{
    int removed = int(m_queue->size());
    m_queue->clear();
    bool cancelled = false;
    if (m_running && !m_running->isFinished()) {
        removed += m_running->cancelForClear();
        cancelled = true;
    }
    return LocalReply::succeeding(request.name,
                                  {{QStringLiteral("status"), QStringLiteral("success")},
                                   {QStringLiteral("result"), QVariantMap{{QStringLiteral("removed"), removed},
                                                                          {QStringLiteral("cancelled"), cancelled}}}},
                                  m_context.manager);
}

} // namespace Nubra
