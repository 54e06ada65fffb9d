// SPDX-License-Identifier: MIT
#include "ArgumentMaps.h"

#include "StandardInput.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

namespace ArgumentMaps {

namespace {

// Parses any JSON value, scalars included (QJsonDocument alone takes only
// objects and arrays).
bool parseJsonValue(const QString& text, QVariant* value, QString* error)
{
    QJsonParseError parseError{};
    const QJsonDocument document =
        QJsonDocument::fromJson(QStringLiteral("[%1]").arg(text).toUtf8(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isArray() || document.array().size() != 1) {
        *error = parseError.error != QJsonParseError::NoError ? parseError.errorString()
                                                              : QStringLiteral("expected exactly one value");
        return false;
    }
    *value = document.array().first().toVariant();
    return true;
}

bool mergeObject(const QByteArray& text, const QString& what, QVariantMap* map, QString* error)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        *error = QStringLiteral("%1 is not valid JSON: %2 at offset %3")
                     .arg(what, parseError.errorString())
                     .arg(parseError.offset);
        return false;
    }
    if (!document.isObject()) {
        *error = QStringLiteral("%1 must be a JSON object").arg(what);
        return false;
    }
    const QVariantMap entries = document.object().toVariantMap();
    for (auto it = entries.cbegin(); it != entries.cend(); ++it)
        map->insert(it.key(), it.value());
    return true;
}

} // namespace

Parsed parse(const std::vector<std::string>& fields)
{
    Parsed parsed;
    for (const std::string& raw : fields) {
        const QString field = QString::fromStdString(raw);
        if (field.startsWith(QLatin1Char('{'))) {
            if (!mergeObject(field.toUtf8(), QStringLiteral("'%1'").arg(field), &parsed.map, &parsed.error))
                return parsed;
            continue;
        }
        if (field.startsWith(QLatin1Char('@'))) {
            // @- reads the object from standard input.
            const QString path = field.mid(1);
            QByteArray content;
            if (!StandardInput::readFile(path, &content, &parsed.error)) {
                parsed.fileMissing = true;
                return parsed;
            }
            if (!mergeObject(content, StandardInput::isDash(path) ? QStringLiteral("standard input") : path,
                             &parsed.map, &parsed.error))
                return parsed;
            continue;
        }
        const int equals = field.indexOf(QLatin1Char('='));
        if (equals <= 0) {
            parsed.error = QStringLiteral("'%1' is not key=value, key:=json, a JSON object or @file").arg(field);
            return parsed;
        }
        const bool typed = field.at(equals - 1) == QLatin1Char(':');
        const QString key = field.left(typed ? equals - 1 : equals);
        const QString text = field.mid(equals + 1);
        if (key.isEmpty()) {
            parsed.error = QStringLiteral("'%1' has an empty key").arg(field);
            return parsed;
        }
        if (!typed) {
            parsed.map.insert(key, text);
            continue;
        }
        QVariant value;
        QString why;
        if (!parseJsonValue(text, &value, &why)) {
            parsed.error = QStringLiteral("the value of '%1' is not JSON (%2); write %1=... for a string")
                               .arg(key, why);
            return parsed;
        }
        parsed.map.insert(key, value);
    }
    return parsed;
}

} // namespace ArgumentMaps
