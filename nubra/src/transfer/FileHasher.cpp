#include "transfer/FileHasher.h"

#include <QTimer>

#include <openssl/evp.h>

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

FileHasher::~FileHasher()
{
    if (m_context)
        EVP_MD_CTX_free(m_context);
}

void FileHasher::start()
{
    if (!m_file.open(QIODevice::ReadOnly)) {
        QTimer::singleShot(0, this, [this] { emit failed(QStringLiteral("cannot read %1: %2").arg(m_file.fileName(), m_file.errorString())); });
        return;
    }
    m_context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(m_context, EVP_sha256(), nullptr);
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
            unsigned char digest[EVP_MAX_MD_SIZE];
            unsigned int length = 0;
            EVP_DigestFinal_ex(m_context, digest, &length);
            m_file.close();
            emit hashed(QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex()),
                        m_size);
            return;
        }
        EVP_DigestUpdate(m_context, buffer, size_t(n));
        m_size += n;
        slice += n;
    }
    QTimer::singleShot(0, this, &FileHasher::step);
}

} // namespace Nubra
