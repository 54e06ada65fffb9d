// SPDX-License-Identifier: MIT
#include "transfer/FileHasher.h"

#include "transfer/Sha256.h"

#include <QTimer>

namespace Nubra {

namespace {
// Small enough to keep the loop responsive (a few ms per slice), large
// enough that the per-slice overhead does not matter.
constexpr qint64 kSliceBytes = 4 * 1024 * 1024;
constexpr qint64 kReadBytes = 256 * 1024;
} // namespace

FileHasher::FileHasher(const QString& path, QObject* parent)
    : QObject(parent)
    , m_file(path)
{
}

FileHasher::~FileHasher() = default;

void FileHasher::start()
{
    if (!m_file.open(QIODevice::ReadOnly)) {
        QTimer::singleShot(0, this, [this] { emit failed(QStringLiteral("cannot read %1: %2").arg(m_file.fileName(), m_file.errorString())); });
        return;
    }
    m_hash = std::make_unique<Sha256>();
    QTimer::singleShot(0, this, &FileHasher::step);
}

void FileHasher::step()
{
    char buffer[kReadBytes];
    qint64 slice = 0;
    while (slice < kSliceBytes) {
        const qint64 n = m_file.read(buffer, sizeof buffer);
        if (n < 0) {
            emit failed(QStringLiteral("cannot read %1: %2").arg(m_file.fileName(), m_file.errorString()));
            return;
        }
        if (n == 0) {
            const QByteArray digest = m_hash->hexDigest();
            m_file.close();
            emit hashed(QString::fromLatin1(digest), m_size);
            return;
        }
        m_hash->update(buffer, size_t(n));
        m_size += n;
        slice += n;
    }
    QTimer::singleShot(0, this, &FileHasher::step);
}

} // namespace Nubra
