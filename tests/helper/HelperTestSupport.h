#pragma once

// Shared by the helper's unit tests: private access, glog and Qt message
// capture.

#include <VornNubraHelper.h>

#include <Nubra/Manager.h>

#include <glog/logging.h>

#include <QMutex>
#include <QMutexLocker>
#include <QString>
#include <QStringList>

#include <utility>

// Declared a friend by VornNubraHelper.
class VornNubraHelperTestAccess {
public:
    static Nubra::Manager*& manager(VornNubraHelper& helper) { return helper.m_manager; }
    static QString userToken(const VornNubraHelper& helper) { return helper.m_userToken; }
    static const auto& interfaceMap(const VornNubraHelper& helper) { return helper.m_interfaceMap; }
    static const auto& userAccountMap(const VornNubraHelper& helper) { return helper.m_userAccountMap; }
    static const auto& cloudDiskMap(const VornNubraHelper& helper) { return helper.m_cloudDiskMap; }
};

namespace VornTest {

// Records every glog record made while it exists.
class GlogCapture : public google::LogSink {
public:
    struct Record {
        QString file;
        int line;
        QString text;
    };

    GlogCapture() { google::AddLogSink(this); }
    ~GlogCapture() override { google::RemoveLogSink(this); }

    using google::LogSink::send;
    void send(google::LogSeverity, const char*, const char* baseFile, int line, const google::LogMessageTime&,
              const char* message, size_t length) override
    {
        QMutexLocker lock(&m_mutex);
        m_records.append({QString::fromUtf8(baseFile), line, QString::fromUtf8(message, int(length))});
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
    int count(const QString& text) const { return texts().count(text); }

private:
    mutable QMutex m_mutex;
    QList<Record> m_records;
};

// Records Qt debug/warning messages while it exists (one at a time).
class QtMessageCapture {
public:
    QtMessageCapture()
    {
        s_current = this;
        m_previous = qInstallMessageHandler(&QtMessageCapture::handler);
    }
    ~QtMessageCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    QStringList messages() const
    {
        QMutexLocker lock(&m_mutex);
        return m_messages;
    }
    bool anyContains(const QString& text) const
    {
        for (const QString& m : messages())
            if (m.contains(text))
                return true;
        return false;
    }

private:
    static void handler(QtMsgType, const QMessageLogContext& context, const QString& message)
    {
        if (QtMessageCapture* self = s_current) {
            QMutexLocker lock(&self->m_mutex);
            self->m_messages << QString::fromUtf8(context.category ? context.category : "") + QLatin1Char(':') +
                                    message;
        }
    }
    static inline QtMessageCapture* s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QStringList m_messages;
};

} // namespace VornTest
