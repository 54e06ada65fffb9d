// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <string>

// Runs the vorn binary of this build and collects what it did.
struct VornRun {
    int exitStatus = -1;
    bool crashed = false;
    QString out;
    QString err;
};

// env: changes to the inherited environment; an empty value removes the
// variable. input goes to standard input, which is then closed. Unless env
// names XDG_CONFIG_HOME, vorn gets an empty folder of this test process for
// it, so that no token stored by a user (or another test) is used.
VornRun runVorn(const QStringList& args, const QMap<QString, QString>& env = {}, int timeoutMs = 60000,
                const QByteArray& input = QByteArray());

// The empty configuration folder runVorn gives by default.
QString isolatedConfigHome();

QString vornBinary();

// The run's standard output as one JSON object (empty if it is not one).
QJsonObject jsonOf(const VornRun& run);
// Exit status and both outputs, for failure messages.
std::string describe(const VornRun& run);
