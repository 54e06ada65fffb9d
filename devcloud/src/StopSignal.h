// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace devcloud::StopSignal {

// The dev cloud's deliberate waits (injected delays, stalls, throttling)
// sleep through here, so that stopping the cloud ends them at once instead
// of holding the shutdown up for as long as a test asked the cloud to wait.

// Marks the cloud as stopping and wakes every sleeper.
void raise();

// Sleeps for the duration unless the cloud stops first. Returns false when
// the cloud is stopping (at once, if it already was).
bool sleepFor(std::chrono::microseconds duration);

} // namespace devcloud::StopSignal
