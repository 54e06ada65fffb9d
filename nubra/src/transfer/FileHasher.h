// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QObject>
#include <QString>

#include <memory>


namespace Nubra {

class Sha256;

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
    std::unique_ptr<Sha256> m_hash;
    qint64 m_size = 0;
};

} // namespace Nubra
