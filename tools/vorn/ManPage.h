// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QPair>
#include <QString>

namespace CLI {
class App;
}

// vorn(1) in roff, written from the same command tree and help texts as
// --help; CMake runs `vorn help-man` at build time and installs the result.
namespace ManPage {

struct Extra {
    QString exitStatus;                          // paragraphs (one per line)
    QList<QPair<QString, QString>> environment;  // name, meaning
    QList<QPair<QString, QString>> files;        // path, meaning
};

QString render(const CLI::App& root, const QString& version, const Extra& extra);

// Text made safe for roff: backslashes, leading dots and quotes, hyphens.
QString escape(const QString& text);

} // namespace ManPage
