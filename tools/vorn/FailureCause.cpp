// SPDX-License-Identifier: MIT
#include "FailureCause.h"

#include <Nubra/Reply.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMutex>

#include <cstring>

namespace FailureCause {

namespace {

// Records come on the helper's thread; a mutex keeps a stray one from
// another thread harmless.
QMutex g_mutex;
Cause g_first;
QString g_own;

} // namespace

void enable()
{
    QLoggingCategory::setFilterRules(QStringLiteral("%1.info=true").arg(QLatin1String(Nubra::Reply::outcomeCategory)));
}

bool parseRecord(const QString& record, Cause* cause)
{
    const QJsonDocument document = QJsonDocument::fromJson(record.toUtf8());
    if (!document.isObject())
        return false;
    const QJsonObject object = document.object();
    if (!object.value(QStringLiteral("request")).isString())
        return false;
    cause->request = object.value(QStringLiteral("request")).toString();
    cause->clientError = object.value(QStringLiteral("error")).toInt();
    cause->clientErrorName = object.value(QStringLiteral("errorName")).toString();
    cause->httpStatus = object.value(QStringLiteral("httpStatus")).toInt();
    cause->message = object.value(QStringLiteral("message")).toString();
    return true;
}

bool take(const char* category, const QString& message)
{
    if (!category || std::strcmp(category, Nubra::Reply::outcomeCategory) != 0)
        return false;
    Cause cause;
    if (parseRecord(message, &cause)) {
        QMutexLocker lock(&g_mutex);
        if (!g_first.known())
            g_first = cause;
    }
    return true;
}

void clear()
{
    QMutexLocker lock(&g_mutex);
    g_first = Cause();
    g_own.clear();
}

void set(const QString& text)
{
    QMutexLocker lock(&g_mutex);
    g_own = text;
}

Cause current()
{
    {
        QMutexLocker lock(&g_mutex);
        if (!g_own.isEmpty()) {
            Cause own;
            own.text = g_own;
            return own;
        }
        if (g_first.known())
            return g_first;
    }
    if (QCoreApplication::instance())
        QCoreApplication::processEvents();
    QMutexLocker lock(&g_mutex);
    return g_first;
}

QString describe(const Cause& cause)
{
    if (!cause.text.isEmpty())
        return cause.text;
    if (!cause.known())
        return QString();
    const QString message = cause.message.isEmpty() ? QStringLiteral("(no message)") : cause.message;
    if (cause.clientError == 0) {
        return cause.httpStatus > 0 ? QStringLiteral("HTTP %1 \"%2\"").arg(cause.httpStatus).arg(message)
                                    : QStringLiteral("\"%1\"").arg(message);
    }
    QString line = QStringLiteral("%1 (%2)").arg(cause.clientErrorName).arg(cause.clientError);
    if (cause.httpStatus > 0)
        line += QStringLiteral(", HTTP %1").arg(cause.httpStatus);
    return line + QStringLiteral(": ") + message;
}

QVariantMap toMap(const Cause& cause)
{
    QVariantMap map{{QStringLiteral("text"), describe(cause)}};
    if (!cause.request.isEmpty()) {
        map.insert(QStringLiteral("request"), cause.request);
        map.insert(QStringLiteral("clientError"), cause.clientError);
        map.insert(QStringLiteral("clientErrorName"), cause.clientErrorName);
        map.insert(QStringLiteral("message"), cause.message);
        if (cause.httpStatus > 0)
            map.insert(QStringLiteral("httpStatus"), cause.httpStatus);
    }
    return map;
}

} // namespace FailureCause
