// SPDX-License-Identifier: MIT
// Vorn Companion: the VornNubraHelper library in the desktop window it was
// made for. Against the local dev cloud: scripts/demo --gui; against any
// cloud: NUBRA_CONFIG=/path/to/config.json vorn-companion.

#include "CompanionWindow.h"

#include <VornNubraHelper.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QStandardPaths>

#include <cstdio>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vorn Companion"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Vorn Companion: account, cloud disk, updates, live device "
                                                    "status and protected text through VornNubraHelper. The cloud "
                                                    "is the one NUBRA_CONFIG names."));
    parser.addHelpOption();
    const QCommandLineOption account(QStringLiteral("account"), QStringLiteral("Account to pre-fill."),
                                     QStringLiteral("account"));
    const QCommandLineOption packages(QStringLiteral("packages"), QStringLiteral("Folder for update packages."),
                                      QStringLiteral("folder"));
    parser.addOption(account);
    parser.addOption(packages);
    parser.process(app);

    // The helper is made on this, the GUI, thread: all its calls belong here.
    if (!VornNubraHelper::getInstance()) {
        std::fprintf(stderr, "vorn-companion: the cloud helper is not available\n");
        return 1;
    }

    CompanionOptions options;
    options.account = parser.value(account);
    options.packageFolder = parser.isSet(packages)
        ? parser.value(packages)
        : QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/packages");
    QDir().mkpath(options.packageFolder);

    CompanionWindow window(options);
    window.show();
    return app.exec();
}
