// SPDX-License-Identifier: MIT
#include "transfer/WritableFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace Nubra {

namespace {
QString reason(int error) { return QString::fromLocal8Bit(std::strerror(error)); }
} // namespace

QString prepareWritableFolder(const QString& folder)
{
    const QString absolute = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    // Each missing level by hand, so that the failing one gives its errno.
    QString level;
    for (const QString& name : absolute.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        level += QLatin1Char('/') + name;
        const QByteArray native = QFile::encodeName(level);
        struct stat info {};
        if (::stat(native.constData(), &info) == 0) {
            if (!S_ISDIR(info.st_mode))
                return QStringLiteral("cannot create folder %1: %2 (%3 is a file)").arg(absolute, reason(ENOTDIR), level);
            continue;
        }
        if (errno != ENOENT)
            return QStringLiteral("cannot create folder %1: %2").arg(absolute, reason(errno));
        if (::mkdir(native.constData(), 0777) != 0 && errno != EEXIST)
            return QStringLiteral("cannot create folder %1: %2").arg(absolute, reason(errno));
    }
    if (::access(QFile::encodeName(absolute).constData(), W_OK | X_OK) != 0)
        return QStringLiteral("cannot write into folder %1: %2").arg(absolute, reason(errno));
    return {};
}

} // namespace Nubra
