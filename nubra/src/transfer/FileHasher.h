#pragma once

#include <QFile>
#include <QObject>
#include <QString>

#include <memory>

struct evp_md_ctx_st;

namespace Nubra {

// SHA-256 of a file, computed on the event loop a slice at a time so that a
// file of hundreds of MiB neither blocks the loop nor sits in memory.
class FileHasher : public QObject {
    Q_OBJECT
public:
    explicit FileHasher(const QString& path, QObject* parent = nullptr);
    ~FileHasher() override;

    // Starts on the next loop turn; emits exactly one of hashed()/failed()
    // unless deleted first.
    void start();

signals:
    void hashed(QString sha256Hex, qint64 size);
    void failed(QString message);

private:
    void step();

    QFile m_file;
    evp_md_ctx_st* m_context = nullptr;
    qint64 m_size = 0;
};

} // namespace Nubra
