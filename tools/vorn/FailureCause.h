// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariantMap>

// Why a helper call failed. The helper returns only result codes; the cloud
// client writes one record for every request that ends in a failure (its
// logging category "nubra.outcome": the client's error and reason, or the
// cloud's own message, and the HTTP status). vorn collects those records
// while a command runs and shows the first one next to the result code.
// Causes vorn knows itself (its own time-out, a missing field) are set
// directly.
namespace FailureCause {

struct Cause {
    QString request;       // the client's request name; empty for vorn's own causes
    int clientError = 0;   // Nubra::Error::ErrorCode; 0 when the cloud answered a failure
    QString clientErrorName;
    int httpStatus = 0;    // 0: no answer arrived
    QString message;       // the client's reason or the cloud's message
    QString text;          // set for vorn's own causes

    bool known() const { return !request.isEmpty() || !text.isEmpty(); }
};

// Turns the client's records on; call before the helper is created.
void enable();

// From the Qt message handler: takes a record of the client's outcome
// category and returns true, false for every other message.
bool take(const char* category, const QString& message);

// Parses one record (a compact JSON object); false when it is not one.
bool parseRecord(const QString& record, Cause* cause);

// Forgets what was collected (before a call whose failure stands alone).
void clear();
// A cause vorn found itself; it wins over the client's records.
void set(const QString& text);

// The cause of the failure just reported: vorn's own, else the first record
// since clear(). Refusals are recorded on the event loop's next turn, so
// pending events are handled first when nothing is known yet.
Cause current();

// One line for people: `HTTP 401 "wrong account or password"` (the cloud's
// failure answer), `ConnectionRefused (200): Failed to connect to ...` (the
// client's error and reason).
QString describe(const Cause& cause);
// The same fields for --json.
QVariantMap toMap(const Cause& cause);

} // namespace FailureCause
