// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace devcloud {

struct CaptchaImage {
    QString text;   // what the user must type
    QByteArray png; // the picture of it
    int width = 0;
    int height = 0;
};

// Draws a random text of `length` characters from an alphabet without look-
// alike characters (no 0/O, 1/I, 2/Z, 5/S, 8/B), with jitter and noise.
CaptchaImage makeCaptcha(int length = 5);

} // namespace devcloud
