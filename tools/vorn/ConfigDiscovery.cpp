// SPDX-License-Identifier: MIT
#include "ConfigDiscovery.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace ConfigDiscovery {

namespace {

constexpr const char* kOverride = "NUBRA_CONFIG";

QString hint()
{
    return QStringLiteral(
        "Point vorn at a client configuration with --config FILE or the NUBRA_CONFIG environment variable "
        "(nubra-devcloud --write-config FILE writes one for a local cloud), or run 'vorn demo'.");
}

Located check(const QString& path, const QString& origin)
{
    Located located;
    located.origin = origin;
    const QFileInfo info(path);
    located.path = info.absoluteFilePath();
    if (!info.exists())
        located.error = QStringLiteral("no cloud configured: %1 names %2, which does not exist. %3")
                            .arg(origin, located.path, hint());
    else if (!info.isFile() || !info.isReadable())
        located.error = QStringLiteral("no cloud configured: %1 names %2, which is not a readable file. %3")
                            .arg(origin, located.path, hint());
    return located;
}

} // namespace

QString defaultPath()
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath()
                           + QStringLiteral("/../MacOS/NubraCfg/config/config.json"));
}

Located locate(const QString& explicitFile)
{
    if (!explicitFile.isEmpty()) {
        Located located = check(explicitFile, QStringLiteral("--config"));
        if (located.ok())
            qputenv(kOverride, QFile::encodeName(located.path));
        return located;
    }
    const QString fromEnvironment = qEnvironmentVariable(kOverride);
    if (!fromEnvironment.isEmpty())
        return check(fromEnvironment, QString::fromLatin1(kOverride));

    Located located = check(defaultPath(), QStringLiteral("default location"));
    if (!located.ok())
        located.error = QStringLiteral("no cloud configured: NUBRA_CONFIG is not set and there is no client "
                                       "configuration at %1. %2")
                            .arg(located.path, hint());
    return located;
}

} // namespace ConfigDiscovery
