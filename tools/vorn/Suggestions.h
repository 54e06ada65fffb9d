// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

// "Did you mean ...?" for mistyped command and request names.
namespace Suggestions {

// Edit distance counting insertions, deletions, substitutions and swaps of
// two neighbouring letters as one step each (optimal string alignment),
// case-insensitive: "lgoin" is one step from "login".
int distance(const QString& a, const QString& b);

// The candidates closest to word, best first: those within a third of the
// word's length (at least one step, at most three), or starting with it.
// Empty when nothing is close.
QStringList closest(const QString& word, const QStringList& candidates, int limit = 3);

// " (did you mean 'login'?)" / " (did you mean 'a' or 'b'?)", or "".
QString didYouMean(const QString& word, const QStringList& candidates);

} // namespace Suggestions
