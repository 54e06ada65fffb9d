// SPDX-License-Identifier: MIT
#include "upgrade/UpgradeService.h"

#include "config/ClientConfig.h"
#include "core/LocalReply.h"
#include "transfer/ResumableDownload.h"
#include "transfer/WritableFolder.h"
#include "upgrade/CloudJsonCall.h"
#include "upgrade/PackageSignature.h"
#include "upgrade/UpgradeCallReply.h"
#include "upgrade/UpgradeDownloadReply.h"

#include <Nubra/Manager.h>

#include <QDir>

namespace Nubra {

namespace {
const QString kPrefix = QStringLiteral("autoUpgrade:");

QVariantMap bodyOf(const QVariantMap& record)
{
    // The helper hands the body over as the record itself.
    if (record.size() == 1 && record.value(QStringLiteral("body")).userType() == QMetaType::QVariantMap)
        return record.value(QStringLiteral("body")).toMap();
    return record;
}
} // namespace

UpgradeService::UpgradeService(const ClientContext& context)
    : m_context(context)
{
}

bool UpgradeService::handles(const QString& name) const { return name.startsWith(kPrefix); }

Reply* UpgradeService::start(const RequestContext& request)
{
    const QString verb = request.name.mid(kPrefix.size());
    const QVariantMap body = bodyOf(request.record);
    if (verb == QLatin1String("setAutoUpgradeConfig"))
        return configure(request.name, body);
    if (verb == QLatin1String("checkUpgrade"))
        return check(request.name, body);
    if (verb == QLatin1String("startDownload"))
        return download(request.name, body);
    if (verb == QLatin1String("isExist"))
        return isExist(request.name, body);
    return refuse(request.name, Error::UnknownRequest, QStringLiteral("unknown request \"%1\"").arg(request.name));
}

Reply* UpgradeService::refuse(const QString& name, Error::ErrorCode code, const QString& message)
{
    return LocalReply::refused(name, code, message, m_context.manager);
}

Reply* UpgradeService::configure(const QString& name, const QVariantMap& body)
{
    QString message;
    const auto models = UpgradeRegistry::parse(body, &message);
    if (!models)
        return refuse(name, Error::InvalidArgument, message);
    const QString folder = models->first().folder;
    // Refused now, with the system's reason, rather than at the first
    // download.
    const QString folderProblem = prepareWritableFolder(folder);
    if (!folderProblem.isEmpty())
        return refuse(name, Error::FileOpenFailed, QStringLiteral("package folder: ") + folderProblem);
    QVariantList registered;
    for (const UpgradeRegistration& model : *models) {
        m_registry.add(model);
        registered.append(model.toMap());
    }
    return LocalReply::succeeding(name,
                                  {{QStringLiteral("status"), QStringLiteral("success")},
                                   {QStringLiteral("errorCode"), 0},
                                   {QStringLiteral("result"),
                                    QVariantMap{{QStringLiteral("models"), registered},
                                                {QStringLiteral("path"), folder}}}},
                                  m_context.manager);
}

Reply* UpgradeService::check(const QString& name, const QVariantMap& body)
{
    const QString modelCode = body.value(QStringLiteral("modelCode")).toString();
    const auto registration = m_registry.find(modelCode);
    if (!registration)
        return refuse(name, Error::InvalidArgument,
                      QStringLiteral("model \"%1\" is not registered for upgrades").arg(modelCode));
    const QVariantMap query{{QStringLiteral("modelCode"), registration->modelCode},
                            {QStringLiteral("version"), registration->version},
                            {QStringLiteral("versionType"), registration->versionType},
                            {QStringLiteral("langType"), registration->langType},
                            {QStringLiteral("osType"), registration->osType},
                            {QStringLiteral("maxPatch"), registration->maxPatch}};
    auto* call = new CloudJsonCall(m_context, QStringLiteral("upgradeCheck"), QStringLiteral("/api/v1/upgrade/check"),
                                   query, nullptr);
    const UpgradeRegistration r = *registration;
    const QVariant signingKeys =
        m_context.config->section(QStringLiteral("upgrade")).value(QStringLiteral("signingKeys"));
    return new UpgradeCallReply(
        name, call,
        [r, signingKeys](const QVariantMap& cloud) {
            QVariantMap result = cloud;
            result.insert(QStringLiteral("modelCode"), r.modelCode);
            result.insert(QStringLiteral("currentVersion"), r.version);
            if (!cloud.value(QStringLiteral("hasUpgrade")).toBool())
                return result;
            const QString version = cloud.value(QStringLiteral("version")).toString();
            result.insert(QStringLiteral("localPath"), UpgradeRegistry::packagePath(r, version));
            // Reported, not enforced: the download checks again and refuses.
            const auto verdict = PackageSignature::checkPackage(
                signingKeys,
                {r.modelCode, version, cloud.value(QStringLiteral("packageSize")).toLongLong(),
                 cloud.value(QStringLiteral("sha256")).toString().toLower()},
                cloud.value(QStringLiteral("signature")).toString());
            if (verdict.code != Error::NoError)
                result.insert(QStringLiteral("signatureError"), verdict.message);
            else if (!verdict.signedBy.isEmpty())
                result.insert(QStringLiteral("signedBy"), verdict.signedBy);
            return result;
        },
        nullptr, m_context.manager);
}

std::optional<UpgradeRegistration> UpgradeService::packageOf(const QVariantMap& entry, QString* version,
                                                             QString* why) const
{
    const QString modelCode = entry.value(QStringLiteral("modelCode")).toString();
    *version = entry.value(QStringLiteral("version")).toString();
    const auto registration = m_registry.find(modelCode);
    if (!registration) {
        *why = QStringLiteral("model \"%1\" is not registered for upgrades").arg(modelCode);
        return std::nullopt;
    }
    if (version->isEmpty()) {
        *why = QStringLiteral("\"version\" must be non-empty");
        return std::nullopt;
    }
    return registration;
}

Reply* UpgradeService::download(const QString& name, const QVariantMap& body)
{
    const QVariantList upgrades = body.value(QStringLiteral("upgrades")).toList();
    if (upgrades.isEmpty())
        return refuse(name, Error::InvalidArgument, QStringLiteral("\"upgrades\" must list at least one package"));
    QList<UpgradeDownloadReply::Item> items;
    for (const QVariant& entry : upgrades) {
        QString version, why;
        const auto registration = packageOf(entry.toMap(), &version, &why);
        if (!registration)
            return refuse(name, Error::InvalidArgument, why);
        items.append({*registration, version, UpgradeRegistry::packagePath(*registration, version)});
    }
    // One writer per package file.
    m_downloads.removeAll(nullptr);
    for (const auto& running : m_downloads) {
        if (running->isFinished())
            continue;
        for (const auto& item : items)
            if (running->targetPaths().contains(item.targetPath))
                return refuse(name, Error::Busy, QStringLiteral("%1 is already downloading").arg(item.targetPath));
    }
    auto* reply = new UpgradeDownloadReply(name, m_context, items, m_context.manager);
    m_downloads.append(reply);
    return reply;
}

Reply* UpgradeService::isExist(const QString& name, const QVariantMap& body)
{
    QString version, why;
    const auto registration = packageOf(body, &version, &why);
    if (!registration)
        return refuse(name, Error::InvalidArgument, why);
    const QString target = UpgradeRegistry::packagePath(*registration, version);
    const auto onDisk = ResumableDownload::inspect(target);
    auto resultWith = [target, onDisk](qint64 total) {
        return QVariantMap{{QStringLiteral("bytesReceived"), onDisk.received},
                           {QStringLiteral("bytesTotal"), total},
                           {QStringLiteral("complete"), onDisk.complete},
                           {QStringLiteral("path"), target}};
    };
    if (onDisk.total >= 0) {
        return LocalReply::succeeding(name,
                                      {{QStringLiteral("status"), QStringLiteral("success")},
                                       {QStringLiteral("errorCode"), 0},
                                       {QStringLiteral("result"), resultWith(onDisk.total)}},
                                      m_context.manager);
    }
    // Nothing on disk tells the total: the cloud's package entry does. When
    // the cloud cannot be asked, the bytes on disk are still the answer.
    const QVariantMap query{{QStringLiteral("modelCode"), registration->modelCode},
                            {QStringLiteral("version"), version},
                            {QStringLiteral("osType"), registration->osType},
                            {QStringLiteral("langType"), registration->langType}};
    auto* call = new CloudJsonCall(m_context, QStringLiteral("upgradePackage"),
                                   QStringLiteral("/api/v1/upgrade/package"), query, nullptr);
    return new UpgradeCallReply(
        name, call,
        [resultWith](const QVariantMap& package) {
            return resultWith(package.value(QStringLiteral("packageSize")).toLongLong());
        },
        [resultWith] { return resultWith(0); }, m_context.manager);
}

} // namespace Nubra
