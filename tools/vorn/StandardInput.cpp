// SPDX-License-Identifier: MIT
#include "StandardInput.h"

#include <QFile>

#include <cstdio>

namespace StandardInput {

namespace {
bool g_consumed = false;
}

bool isDash(const QString& pathOrText) { return pathOrText == QLatin1String("-"); }

bool readFile(const QString& path, QByteArray* content, QString* error)
{
    QFile file;
    if (isDash(path)) {
        if (g_consumed) {
            *error = QStringLiteral("standard input ('-') can be read only once");
            return false;
        }
        g_consumed = true;
        if (!file.open(stdin, QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read standard input: %1").arg(file.errorString());
            return false;
        }
    } else {
        file.setFileName(path);
        if (!file.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
            return false;
        }
    }
    *content = file.readAll();
    return true;
}

bool readText(const QString& argument, QString* text, QString* error)
{
    if (!isDash(argument)) {
        *text = argument;
        return true;
    }
    QByteArray content;
    if (!readFile(argument, &content, error))
        return false;
    if (content.endsWith('\n'))
        content.chop(content.endsWith("\r\n") ? 2 : 1);
    *text = QString::fromUtf8(content);
    return true;
}

} // namespace StandardInput
