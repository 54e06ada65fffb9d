// SPDX-License-Identifier: MIT
#include "DebugText.h"

#include <QDebug>
#include <QStringList>

namespace VornDebugText {

namespace {

QString ofVariant(const QVariant& value);

// One value as QDebug writes it on its own, in its default (quoting) mode.
template <typename T>
QString debugged(const T& value)
{
    QString text;
    QDebug(&text).nospace() << value;
    return text;
}

// Qt 5: "(a, b)", no container name.
template <typename T, typename Write>
QString parenthesised(const QList<T>& items, Write write)
{
    QStringList parts;
    for (const T& item : items)
        parts << write(item);
    return QLatin1Char('(') + parts.join(QLatin1String(", ")) + QLatin1Char(')');
}

QString ofList(const QVariantList& list) { return parenthesised(list, ofVariant); }

QString ofStringList(const QStringList& list)
{
    return parenthesised(list, [](const QString& s) { return debugged(s); });
}

QString ofVariant(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QVariantList:
        return QStringLiteral("QVariant(QVariantList, ") + ofList(value.toList()) + QLatin1Char(')');
    case QMetaType::QStringList:
        return QStringLiteral("QVariant(QStringList, ") + ofStringList(value.toStringList()) + QLatin1Char(')');
    case QMetaType::QVariantMap:
        return QStringLiteral("QVariant(QVariantMap, ") + ofMap(value.toMap()) + QLatin1Char(')');
    default:
        return debugged(value);
    }
}

} // namespace

QString ofMap(const QVariantMap& map)
{
    QString text = QStringLiteral("QMap(");
    for (auto it = map.constBegin(); it != map.constEnd(); ++it)
        text += QLatin1Char('(') + debugged(it.key()) + QStringLiteral(", ") + ofVariant(it.value()) + QLatin1Char(')');
    return text + QLatin1Char(')');
}

} // namespace VornDebugText
