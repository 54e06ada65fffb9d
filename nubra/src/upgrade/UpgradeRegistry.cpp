// SPDX-License-Identifier: MIT
#include "upgrade/UpgradeRegistry.h"

#include <QDir>

namespace Nubra {

QVariantMap UpgradeRegistration::toMap() const
{
    return {{QStringLiteral("modelCode"), modelCode},   {QStringLiteral("version"), version},
            {QStringLiteral("versionType"), versionType}, {QStringLiteral("langType"), langType},
            {QStringLiteral("osType"), osType},         {QStringLiteral("maxPatch"), maxPatch},
            {QStringLiteral("checkInterval"), checkInterval}, {QStringLiteral("path"), folder}};
}

std::optional<QList<UpgradeRegistration>> UpgradeRegistry::parse(const QVariantMap& body, QString* message)
{
    const QString folder = body.value(QStringLiteral("path")).toString();
    if (folder.isEmpty()) {
        *message = QStringLiteral("\"path\" (the package folder) is required");
        return std::nullopt;
    }
    const int interval = body.value(QStringLiteral("checkInterval")).toInt();
    QList<UpgradeRegistration> models;
    for (auto it = body.begin(); it != body.end(); ++it) {
        if (it.value().userType() != QMetaType::QVariantMap)
            continue;
        const QVariantMap entry = it.value().toMap();
        if (!entry.contains(QStringLiteral("modelCode")))
            continue;
        UpgradeRegistration r;
        r.modelCode = entry.value(QStringLiteral("modelCode")).toString();
        r.version = entry.value(QStringLiteral("version")).toString();
        r.versionType = entry.value(QStringLiteral("versionType")).toString();
        r.langType = entry.value(QStringLiteral("langType")).toString();
        r.osType = entry.value(QStringLiteral("osType")).toString();
        r.maxPatch = entry.value(QStringLiteral("maxPatch")).toInt();
        r.checkInterval = interval;
        r.folder = QDir::cleanPath(folder);
        if (r.modelCode.isEmpty() || r.version.isEmpty()) {
            *message = QStringLiteral("model \"%1\": \"modelCode\" and \"version\" must be non-empty").arg(it.key());
            return std::nullopt;
        }
        models.append(r);
    }
    if (models.isEmpty()) {
        *message = QStringLiteral("no model entry (a map with \"modelCode\") in the registration");
        return std::nullopt;
    }
    return models;
}

void UpgradeRegistry::add(const UpgradeRegistration& registration)
{
    m_models.insert(registration.modelCode, registration);
}

std::optional<UpgradeRegistration> UpgradeRegistry::find(const QString& modelCode) const
{
    auto it = m_models.find(modelCode);
    if (it == m_models.end())
        return std::nullopt;
    return *it;
}

QString UpgradeRegistry::packageFileName(const QString& modelCode, const QString& version)
{
    QString name = modelCode + QLatin1Char('-') + version;
    for (QChar& c : name) {
        const ushort u = c.unicode();
        const bool plain = (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '.'
            || u == '_' || u == '-';
        if (!plain)
            c = QLatin1Char('_');
    }
    // A name made only of dots would walk out of the folder.
    if (name.startsWith(QLatin1Char('.')))
        name.prepend(QLatin1Char('_'));
    return name + QStringLiteral(".vpkg");
}

QString UpgradeRegistry::packagePath(const UpgradeRegistration& registration, const QString& version)
{
    return registration.folder + QLatin1Char('/') + packageFileName(registration.modelCode, version);
}

} // namespace Nubra
