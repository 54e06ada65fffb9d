// SPDX-License-Identifier: MIT
#pragma once

#include <QMap>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace Nubra {

// What the application registered for one product model.
struct UpgradeRegistration {
    QString modelCode;
    QString version;
    QString versionType;
    QString langType;
    QString osType;
    int maxPatch = 0;
    int checkInterval = 0;
    // Folder that receives the packages of this model.
    QString folder;

    QVariantMap toMap() const;
};

// The registrations of "autoUpgrade:setAutoUpgradeConfig", by model code.
// A later registration of a model replaces the earlier one.
class UpgradeRegistry {
public:
    // Reads a registration body: every entry whose value is a map with a
    // "modelCode" is one model; "checkInterval" and "path" apply to all of
    // them. Returns the models or an error message.
    static std::optional<QList<UpgradeRegistration>> parse(const QVariantMap& body, QString* message);

    void add(const UpgradeRegistration& registration);
    std::optional<UpgradeRegistration> find(const QString& modelCode) const;

    // The local file of a package: "<model>-<version>.vpkg" with every
    // character outside [A-Za-z0-9._-] replaced by '_', so that any model
    // code or version makes one plain file name inside the folder.
    static QString packageFileName(const QString& modelCode, const QString& version);
    static QString packagePath(const UpgradeRegistration& registration, const QString& version);

private:
    QMap<QString, UpgradeRegistration> m_models;
};

} // namespace Nubra
