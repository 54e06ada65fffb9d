// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

// Who is signed in, as the account panel hands it to the other panels.
struct SignedInUser {
    QString token;
    QString userId;
    QString name;
    QStringList deviceSerials;
};
