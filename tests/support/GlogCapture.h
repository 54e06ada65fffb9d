// SPDX-License-Identifier: MIT
#pragma once

// Records every glog record (the helper's leveled log lines) made while it
// exists. Header only: the tests that use it link glog themselves.

#include <glog/logging.h>

#include <QList>
#include <QMutex>
#include <QMutexLocker>
#include <QString>
#include <QStringList>

namespace VornTest {

class GlogCapture : public google::LogSink {
public:
    struct Record {
        QString file; // the file name the helper gives its log lines
        QString text;
    };

    GlogCapture() { google::AddLogSink(this); }
    ~GlogCapture() override { google::RemoveLogSink(this); }

    using google::LogSink::send;
    void send(google::LogSeverity, const char*, const char* baseFile, int, const google::LogMessageTime&,
              const char* message, size_t length) override
    {
        QMutexLocker lock(&m_mutex);
        m_records.append({QString::fromUtf8(baseFile), QString::fromUtf8(message, int(length))});
    }

    QList<Record> records() const
    {
        QMutexLocker lock(&m_mutex);
        return m_records;
    }
    QStringList texts() const
    {
        QStringList out;
        for (const Record& r : records())
            out << r.text;
        return out;
    }
    bool contains(const QString& text) const { return texts().contains(text); }
    int count(const QString& text) const { return texts().count(text); }

private:
    mutable QMutex m_mutex;
    QList<Record> m_records;
};

} // namespace VornTest
