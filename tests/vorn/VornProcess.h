#pragma once

#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// Runs the vorn binary of this build and collects what it did.
struct VornRun {
    int exitStatus = -1;
    bool crashed = false;
    QString out;
    QString err;
};

// env: changes to the inherited environment; an empty value removes the
// variable.
VornRun runVorn(const QStringList& args, const QMap<QString, QString>& env = {}, int timeoutMs = 60000);

QString vornBinary();
