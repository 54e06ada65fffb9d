#pragma once

// Collects the helper's log records (glog INFO) while it exists.

#include <glog/logging.h>

#include <QStringList>

#include <mutex>

class HelperLogCapture : public google::LogSink {
public:
    using google::LogSink::send;

    HelperLogCapture() { google::AddLogSink(this); }
    ~HelperLogCapture() override { google::RemoveLogSink(this); }

    void send(google::LogSeverity, const char*, const char*, int, const google::LogMessageTime&, const char* message,
              size_t length) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.append(QString::fromUtf8(message, int(length)));
    }

    QStringList lines() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }
    bool contains(const QString& line) const { return lines().contains(line); }

private:
    mutable std::mutex m_mutex;
    QStringList m_lines;
};
