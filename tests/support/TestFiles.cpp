// SPDX-License-Identifier: MIT
#include "TestFiles.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonDocument>
#include <QUuid>

#include <random>

namespace VornTest {

namespace {

// Writes size bytes, asking fill() for each chunk before it is written.
template <typename Fill>
bool writeChunks(const QString& path, qint64 size, int chunkSize, Fill fill)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    QByteArray chunk(chunkSize, '\0');
    for (qint64 written = 0; written < size;) {
        fill(chunk);
        const qint64 n = qMin<qint64>(chunk.size(), size - written);
        if (file.write(chunk.constData(), n) != n)
            return false;
        written += n;
    }
    return true;
}

} // namespace

bool writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

bool writeRandomFile(const QString& path, qint64 size)
{
    std::mt19937_64 random(std::random_device{}());
    return writeChunks(path, size, 1 << 20, [&random](QByteArray& chunk) {
        auto* words = reinterpret_cast<quint64*>(chunk.data());
        for (int i = 0; i < chunk.size() / 8; ++i)
            words[i] = random();
    });
}

bool writePatternFile(const QString& path, qint64 size, char seed, bool unique)
{
    QByteArray pattern(64 * 1024, seed);
    for (int i = 0; i < pattern.size(); i += 7)
        pattern[i] = char(i * 31 + seed);
    if (unique)
        pattern.replace(0, 16, QUuid::createUuid().toRfc4122());
    return writeChunks(path, size, pattern.size(), [&pattern](QByteArray& chunk) { chunk = pattern; });
}

QString sha256OfFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&file);
    return QString::fromLatin1(hash.result().toHex());
}

QJsonObject readJsonObject(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

} // namespace VornTest
