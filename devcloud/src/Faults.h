// SPDX-License-Identifier: MIT
#pragma once

#include <httplib.h>

#include <QJsonObject>
#include <QString>

namespace devcloud {

// Fault injection for tests, asked for by the request itself through the
// "X-Devcloud-Fault" header, the "devcloudFault" query parameter or a
// "devcloudFault" body entry. Values (several may be joined with ','):
//   delay=MS    answer after MS milliseconds (at most 120000)
//   failure     answer {"status": "failure"} with HTTP 200
//   http=CODE   answer with HTTP status CODE (200-599) and a plain-text body
//   nonjson     answer HTTP 200 with an HTML body
//   drop        send the response head, then close the connection
struct Fault {
    int delayMs = 0;
    bool failure = false;
    int httpStatus = 0;
    bool nonJson = false;
    bool drop = false;
    QString error; // a fault that cannot be injected: answered with 400

    bool any() const { return delayMs > 0 || failure || httpStatus > 0 || nonJson || drop || !error.isEmpty(); }
    static Fault parse(const QString& text);
    static Fault fromRequest(const httplib::Request& request, const QJsonObject& body);
};

// Applies the fault: sleeps for the delay; returns true when the fault has
// produced the answer (the handler must not run). A fault with an error is
// answered with 400 "badFault".
bool applyFault(const Fault& fault, httplib::Response& response);

} // namespace devcloud
