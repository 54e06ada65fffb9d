// SPDX-License-Identifier: MIT
#pragma once

#include "core/Service.h"
#include "upgrade/UpgradeRegistry.h"

#include <Nubra/Reply.h>

#include <QList>
#include <QPointer>

namespace Nubra {

class CloudJsonCall;
class ResumableDownload;

// Reply of "autoUpgrade:startDownload". For each requested package, in
// order: ask the cloud for the package (name, size, SHA-256, URL), then
// check its signature when the configuration pins signing keys
// (PackageSignature), then download it into the model's folder with a
// ResumableDownload, which verifies the digest before the file gets its
// final name.
//
// stop() pauses: the transfer stops, the partial bytes stay, and the reply
// finishes on a later turn with status "paused" (errorCode 0). abort()
// also keeps the partial bytes and fails with Cancelled.
class UpgradeDownloadReply : public Reply {
    Q_OBJECT
public:
    struct Item {
        UpgradeRegistration registration;
        QString version;
        QString targetPath;
    };

    UpgradeDownloadReply(const QString& name, const ClientContext& context, QList<Item> items, QObject* parent);

    QStringList targetPaths() const;

protected:
    void onStop(const QString& item) override;
    void onAbort(const QString& item) override;

private:
    void startItem();
    void packageKnown(Error::ErrorCode code, const QString& message, const QVariantMap& package);
    void itemFinished(Error::ErrorCode code, const QString& message);
    void halt();
    QVariantMap resultMap() const;

    ClientContext m_context;
    QList<Item> m_items;
    int m_current = -1;
    QPointer<CloudJsonCall> m_call;
    QPointer<ResumableDownload> m_download;
    QVariantList m_done;
    QString m_sha256;
    QString m_signedBy; // name of the pinned key that verified the package
    qint64 m_total = -1;
};

} // namespace Nubra
