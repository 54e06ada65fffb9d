// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <vector>

#include <sys/types.h>

namespace devcloud {

// fork + exec with a clean signal state (the dev cloud blocks SIGTERM and
// SIGINT in every thread), only stdio inherited, and the child killed when
// the dev cloud dies (while it has not changed its user). outputFd (or
// /dev/null when -1) receives stdout and stderr. Returns the pid or -1.
pid_t spawn(const std::vector<QByteArray>& arguments, int outputFd);
// Runs a command to its end; false (with the reason) unless it exited with 0.
bool runToCompletion(const std::vector<QByteArray>& arguments, QString* error);

} // namespace devcloud
