// SPDX-License-Identifier: MIT
#include "TokenStore.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QStandardPaths>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TokenStore {

namespace {

QString systemError() { return QString::fromLocal8Bit(std::strerror(errno)); }

bool writeAll(int fd, const QByteArray& data)
{
    qint64 written = 0;
    while (written < data.size()) {
        const ssize_t n = ::write(fd, data.constData() + written, size_t(data.size() - written));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        written += n;
    }
    return true;
}

} // namespace

QString path()
{
    // GenericConfigLocation follows XDG_CONFIG_HOME, else ~/.config.
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/vorn/token");
}

Stored load(QString* error)
{
    QFile file(path());
    if (!file.exists())
        return {};
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("cannot read %1: %2").arg(file.fileName(), file.errorString());
        return {};
    }
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    Stored stored{object.value(QStringLiteral("token")).toString(), object.value(QStringLiteral("account")).toString(),
                  object.value(QStringLiteral("cloud")).toString(), object.value(QStringLiteral("savedAt")).toString()};
    if (!stored.ok() && error)
        *error = QStringLiteral("%1 holds no token").arg(file.fileName());
    return stored;
}

bool save(const Stored& stored, QString* error)
{
    const QString target = path();
    const QString folder = QFileInfo(target).absolutePath();
    // The folder is ours: created 0700, and tightened if it exists.
    if (!QDir().mkpath(folder) || ::chmod(QFile::encodeName(folder).constData(), 0700) != 0) {
        *error = QStringLiteral("cannot create %1: %2").arg(folder, systemError());
        return false;
    }
    const QJsonObject object{{QStringLiteral("token"), stored.token},
                             {QStringLiteral("account"), stored.account},
                             {QStringLiteral("cloud"), stored.cloud},
                             {QStringLiteral("savedAt"), stored.savedAt.isEmpty()
                                  ? QDateTime::currentDateTimeUtc().toString(Qt::ISODate)
                                  : stored.savedAt}};
    // mkstemp creates the file 0600; it is renamed over the old one only
    // once it is complete and on disk.
    QByteArray temporary = QFile::encodeName(target + QStringLiteral(".XXXXXX"));
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
        *error = QStringLiteral("cannot write %1: %2").arg(target, systemError());
        return false;
    }
    const bool written = writeAll(fd, QJsonDocument(object).toJson(QJsonDocument::Indented)) && ::fsync(fd) == 0;
    const QString reason = systemError();
    ::close(fd);
    if (!written || ::rename(temporary.constData(), QFile::encodeName(target).constData()) != 0) {
        *error = QStringLiteral("cannot write %1: %2").arg(target, written ? systemError() : reason);
        ::unlink(temporary.constData());
        return false;
    }
    return true;
}

bool remove(bool* existed, QString* error)
{
    const QByteArray file = QFile::encodeName(path());
    *existed = ::unlink(file.constData()) == 0;
    if (!*existed && errno != ENOENT) {
        *error = QStringLiteral("cannot remove %1: %2").arg(path(), systemError());
        return false;
    }
    return true;
}

QString masked(const QString& secret)
{
    return secret.isEmpty() ? QStringLiteral("(empty)")
                            : QStringLiteral("(set, %1 character%2)")
                                  .arg(secret.size())
                                  .arg(secret.size() == 1 ? QLatin1String("") : QLatin1String("s"));
}

QVariant maskSecrets(const QVariant& value)
{
    static const QRegularExpression secretKey(QStringLiteral("password|passwd|token|secret|key$"),
                                              QRegularExpression::CaseInsensitiveOption);
    if (value.userType() == QMetaType::QVariantMap) {
        QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it) {
            const bool secret = secretKey.match(it.key()).hasMatch() && it.value().userType() == QMetaType::QString;
            it.value() = secret ? QVariant(masked(it.value().toString())) : maskSecrets(it.value());
        }
        return map;
    }
    if (value.userType() == QMetaType::QVariantList) {
        QVariantList list = value.toList();
        for (QVariant& item : list)
            item = maskSecrets(item);
        return list;
    }
    return value;
}

} // namespace TokenStore
