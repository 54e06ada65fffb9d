// SPDX-License-Identifier: MIT
#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

namespace CLI {
class App;
}

// Shell completion scripts written from vorn's command tree: commands at
// every level, their options, and the words a command's first argument
// takes (request names for post, account, disk ...). Words that match
// nothing fall back to file names.
namespace Completion {

// extraWords: command path ("post", "upgrade check") -> more words offered.
QString bashScript(const CLI::App& root, const QMap<QString, QStringList>& extraWords);
// zsh runs the bash script through its bashcompinit layer.
QString zshScript(const CLI::App& root, const QMap<QString, QStringList>& extraWords);

} // namespace Completion
