#pragma once

// Collects the helper's leveled log records (glog) for assertions.

#include <glog/logging.h>

#include <QStringList>

#include <mutex>

namespace VornTest {

class LogCapture : public google::LogSink {
public:
    LogCapture() { google::AddLogSink(this); }
    ~LogCapture() override { google::RemoveLogSink(this); }

    using google::LogSink::send;
    void send(google::LogSeverity, const char*, const char* baseFile, int, const google::LogMessageTime&,
              const char* message, size_t length) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.append(QString::fromUtf8(message, int(length)));
        m_files.append(QString::fromUtf8(baseFile));
    }

    QStringList lines() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }
    QStringList files() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_files;
    }
    bool contains(const QString& line) const { return lines().contains(line); }

private:
    mutable std::mutex m_mutex;
    QStringList m_lines;
    QStringList m_files;
};

} // namespace VornTest
