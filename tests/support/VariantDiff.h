#pragma once

// Type-exact comparison of two QVariant trees, for differential tests against
// Qt: QVariant's own operator== calls 1 and 1.0 or "1" and 1 equal, and 0.0
// and -0.0 too; here the meta-types must match, doubles must match bit for
// bit and strings unit for unit.

#include <QString>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <cstring>

// Empty when `a` and `b` are identical, else the path of the first difference
// and what differs there ("$.result.items[2]: type qlonglong vs double").
inline QString variantDifference(const QVariant& a, const QVariant& b, const QString& path = QStringLiteral("$"))
{
    if (a.userType() != b.userType())
        return QStringLiteral("%1: type %2 vs %3").arg(path, a.typeName(), b.typeName());
    switch (a.userType()) {
    case QMetaType::QVariantMap: {
        const QVariantMap x = a.toMap();
        const QVariantMap y = b.toMap();
        auto i = x.cbegin();
        auto j = y.cbegin();
        for (; i != x.cend() && j != y.cend(); ++i, ++j) {
            if (i.key() != j.key())
                return QStringLiteral("%1: key \"%2\" vs \"%3\"").arg(path, i.key(), j.key());
            const QString inner = variantDifference(i.value(), j.value(), path + '.' + i.key());
            if (!inner.isEmpty())
                return inner;
        }
        if (x.size() != y.size())
            return QStringLiteral("%1: %2 keys vs %3").arg(path).arg(x.size()).arg(y.size());
        return {};
    }
    case QMetaType::QVariantList: {
        const QVariantList x = a.toList();
        const QVariantList y = b.toList();
        if (x.size() != y.size())
            return QStringLiteral("%1: %2 items vs %3").arg(path).arg(x.size()).arg(y.size());
        for (int k = 0; k < x.size(); ++k) {
            const QString inner = variantDifference(x[k], y[k], QStringLiteral("%1[%2]").arg(path).arg(k));
            if (!inner.isEmpty())
                return inner;
        }
        return {};
    }
    case QMetaType::Double: {
        const double x = a.toDouble();
        const double y = b.toDouble();
        if (std::memcmp(&x, &y, sizeof x) != 0)
            return QStringLiteral("%1: %2 vs %3").arg(path).arg(x, 0, 'g', 17).arg(y, 0, 'g', 17);
        return {};
    }
    case QMetaType::Nullptr:
    case QMetaType::UnknownType: return {};
    default:
        if (a != b)
            return QStringLiteral("%1: %2 vs %3").arg(path, a.toString(), b.toString());
        return {};
    }
}
