// SPDX-License-Identifier: MIT
#pragma once

#include "core/Service.h"
#include "upgrade/UpgradeRegistry.h"

#include <QList>
#include <QPointer>

namespace Nubra {

class UpgradeDownloadReply;

// The automatic-upgrade service: every request name that begins with
// "autoUpgrade:". The record is the request's body itself (a "body" map
// is accepted too). Result maps: docs/upgrade.md.
//   setAutoUpgradeConfig  registers models, versions and the package folder
//   checkUpgrade          asks the cloud for a newer version of a model
//   startDownload         downloads packages (pause with stop())
//   isExist               bytes of a package already on disk, and the total
class UpgradeService : public Service {
public:
    explicit UpgradeService(const ClientContext& context);

    bool handles(const QString& name) const override;
    Reply* start(const RequestContext& request) override;

private:
    Reply* configure(const QString& name, const QVariantMap& body);
    Reply* check(const QString& name, const QVariantMap& body);
    Reply* download(const QString& name, const QVariantMap& body);
    Reply* isExist(const QString& name, const QVariantMap& body);
    Reply* refuse(const QString& name, Error::ErrorCode code, const QString& message);
    // The registered model and the version a package entry names, or why
    // it names none.
    std::optional<UpgradeRegistration> packageOf(const QVariantMap& entry, QString* version, QString* why) const;

    ClientContext m_context;
    UpgradeRegistry m_registry;
    QList<QPointer<UpgradeDownloadReply>> m_downloads;
};

} // namespace Nubra
