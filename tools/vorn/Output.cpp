// SPDX-License-Identifier: MIT
#include "Output.h"

#include "FailureCause.h"
#include "ResultCodes.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

Output::Output(Format format, FILE* out, FILE* err)
    : m_format(format)
    , m_out(out)
    , m_err(err)
{
}

QString Output::toJsonText(const QVariant& value, bool indented)
{
    const auto format = indented ? QJsonDocument::Indented : QJsonDocument::Compact;
    const QJsonValue json = QJsonValue::fromVariant(value);
    if (json.isObject())
        return QString::fromUtf8(QJsonDocument(json.toObject()).toJson(format)).trimmed();
    if (json.isArray())
        return QString::fromUtf8(QJsonDocument(json.toArray()).toJson(format)).trimmed();
    // QJsonDocument holds only objects and arrays: wrap the scalar and cut
    // the brackets off again.
    const QString wrapped = QString::fromUtf8(QJsonDocument(QJsonArray{json}).toJson(QJsonDocument::Compact));
    return wrapped.mid(1, wrapped.size() - 2);
}

void Output::writeOut(const QString& text)
{
    std::fputs(text.toUtf8().constData(), m_out);
    std::fputc('\n', m_out);
    std::fflush(m_out);
}

void Output::answer(const QString& operation, int code, const QVariant& payload, const QVariantMap& extra)
{
    const FailureCause::Cause cause = code != 0 ? FailureCause::current() : FailureCause::Cause();
    if (json()) {
        QVariantMap object{{QStringLiteral("operation"), operation},
                           {QStringLiteral("code"), code},
                           {QStringLiteral("codeName"), ResultCodes::name(code)},
                           {QStringLiteral("result"), payload}};
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            object.insert(it.key(), it.value());
        if (code != 0) {
            object.insert(QStringLiteral("meaning"), ResultCodes::meaning(code));
            if (cause.known())
                object.insert(QStringLiteral("cause"), FailureCause::toMap(cause));
        }
        writeOut(toJsonText(object, false));
        return;
    }
    // A failure's one line: the code, what it means, and why it happened.
    QString headline = QStringLiteral("%1: %2 (%3)").arg(operation, ResultCodes::name(code)).arg(code);
    if (code != 0) {
        headline += QStringLiteral(" - ") + ResultCodes::meaning(code);
        if (cause.known())
            headline += QStringLiteral(": ") + FailureCause::describe(cause);
    }
    writeOut(headline);
    for (auto it = extra.cbegin(); it != extra.cend(); ++it) {
        const QVariant& value = it.value();
        writeOut(QStringLiteral("%1: %2").arg(it.key(), value.userType() == QMetaType::QString ? value.toString()
                                                                                         : toJsonText(value, false)));
    }
    const bool empty = !payload.isValid() || payload.isNull()
        || (payload.userType() == QMetaType::QVariantMap && payload.toMap().isEmpty());
    if (!empty)
        writeOut(toJsonText(payload, true));
}

int Output::fail(int exitStatus, const QString& message, const QVariantMap& extra)
{
    std::fprintf(m_err, "vorn: %s\n", message.toUtf8().constData());
    std::fflush(m_err);
    if (json()) {
        QVariantMap object{{QStringLiteral("error"), message}, {QStringLiteral("exitStatus"), exitStatus}};
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            object.insert(it.key(), it.value());
        writeOut(toJsonText(object, false));
    }
    return exitStatus;
}

void Output::note(const QString& text)
{
    if (!json())
        writeOut(text);
}

void Output::document(const QVariantMap& object)
{
    if (json())
        writeOut(toJsonText(object, false));
}
