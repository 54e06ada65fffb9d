// SPDX-License-Identifier: MIT
#include "Suggestions.h"

#include <algorithm>
#include <vector>

namespace Suggestions {

int distance(const QString& first, const QString& second)
{
    const QString a = first.toLower();
    const QString b = second.toLower();
    const int n = a.size();
    const int m = b.size();
    // Three rows suffice: the swap step looks two rows back.
    std::vector<int> twoBack(size_t(m + 1)), previous(size_t(m + 1)), current(size_t(m + 1));
    for (int j = 0; j <= m; ++j)
        previous[size_t(j)] = j;
    for (int i = 1; i <= n; ++i) {
        current[0] = i;
        for (int j = 1; j <= m; ++j) {
            const int cost = a[i - 1] == b[j - 1] ? 0 : 1;
            int best = std::min({previous[size_t(j)] + 1, current[size_t(j - 1)] + 1, previous[size_t(j - 1)] + cost});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                best = std::min(best, twoBack[size_t(j - 2)] + 1);
            current[size_t(j)] = best;
        }
        std::swap(twoBack, previous);
        std::swap(previous, current);
    }
    return previous[size_t(m)];
}

QStringList closest(const QString& word, const QStringList& candidates, int limit)
{
    if (word.isEmpty())
        return {};
    const int allowed = std::clamp(int(word.size()) / 3, 1, 3);
    std::vector<std::pair<int, QString>> ranked;
    for (const QString& candidate : candidates) {
        int d = distance(word, candidate);
        // A prefix ("interf") is as good as one step.
        if (d > allowed && word.size() >= 3 && candidate.startsWith(word, Qt::CaseInsensitive))
            d = allowed;
        if (d <= allowed)
            ranked.emplace_back(d, candidate);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& x, const auto& y) { return x.first < y.first; });
    QStringList names;
    for (const auto& entry : ranked) {
        if (!names.contains(entry.second, Qt::CaseInsensitive))
            names << entry.second;
        if (names.size() == limit)
            break;
    }
    return names;
}

QString didYouMean(const QString& word, const QStringList& candidates)
{
    QStringList names = closest(word, candidates);
    if (names.isEmpty())
        return QString();
    for (QString& name : names)
        name = QLatin1Char('\'') + name + QLatin1Char('\'');
    const QString last = names.takeLast();
    return QStringLiteral(" (did you mean %1?)")
        .arg(names.isEmpty() ? last : names.join(QStringLiteral(", ")) + QStringLiteral(" or ") + last);
}

} // namespace Suggestions
