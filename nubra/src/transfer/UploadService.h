// SPDX-License-Identifier: MIT
#pragma once

#include "core/Service.h"
#include "transfer/UploadItem.h"
#include "transfer/UploadQueueReply.h"

#include <QPointer>

#include <deque>
#include <memory>

namespace Nubra {

// The cloud-disk upload queue (see docs/uploads.md):
// - "UploadCloudSpaceFile" checks and queues files; nothing is sent yet.
// - "startUpload:start" uploads everything queued so far as one batch.
// - "startUpload:removeAll" cancels a running batch and empties the queue.
// One batch runs at a time per manager.
class UploadService : public Service {
public:
    explicit UploadService(const ClientContext& context);

    bool handles(const QString& name) const override;
    Reply* start(const RequestContext& request) override;

private:
    Reply* enqueue(const RequestContext& request);
    Reply* startQueue(const RequestContext& request);
    Reply* removeAll(const RequestContext& request);

    ClientContext m_context;
    std::shared_ptr<UploadQueueReply::Queue> m_queue;
    QPointer<UploadQueueReply> m_running;
};

} // namespace Nubra
