// SPDX-License-Identifier: MIT
#pragma once

// Records Qt debug and warning messages while it exists (one capture at a
// time), as "category:message".

#include <QMutex>
#include <QMutexLocker>
#include <QString>
#include <QStringList>
#include <QtGlobal>

namespace VornTest {

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
