#pragma once

// Pieces of the local wait that the blocking calls share: each call runs a
// heap QEventLoop, held through a guarded pointer, that its reply's handlers
// or a time-out end.

#include "NubraCommon.h"

#include <QPointer>

class QEventLoop;

namespace Nubra {
class Reply;
}

namespace LocalWait {

// A single-shot time-out of `ms` whose timer is a child of the loop, so it
// dies with the loop: if the loop still exists and runs when it fires, `code`
// becomes Timeout and the loop quits.
void startTimeout(const QPointer<QEventLoop>& loop, int ms, Qt::TimerType type, NubraCommon::ErrorCode& code);

// The reply's errorOccurred (direct connection, the reply as context): while
// the loop runs, writes `logText` followed by the error code, sets `code` to
// TransportError and quits the loop.
void quitOnError(Nubra::Reply* reply, const QPointer<QEventLoop>& loop, NubraCommon::ErrorCode& code,
                 const char* logText);

// After the loop returned: schedules the loop's deletion, blocks the
// reply's signals and schedules the reply's deletion.
void release(QEventLoop* loop, Nubra::Reply* reply);

} // namespace LocalWait
