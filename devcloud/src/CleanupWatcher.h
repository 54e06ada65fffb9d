// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <sys/types.h>

namespace devcloud {

// Cleans up after the dev cloud when it dies without doing so itself
// (kill -9, a crash): a small process forked at start-up that reads a pipe
// only the dev cloud writes to. The pipe ends when the dev cloud ends, however
// it ends; the watcher then kills the processes it was told about (the
// broker: the parent-death signal does not help there, mosquitto clears it
// when it drops root), removes the folders it was told about and exits. It
// takes no signals from the terminal and writes nothing.
namespace CleanupWatcher {

// Forks the watcher. Call while the process has a single thread.
bool start(QString* error);
// A child process that must not outlive the dev cloud; forget it once
// reaped. No-ops without a watcher.
void watchProcess(pid_t pid);
void forgetProcess(pid_t pid);
// A folder removed (with its contents) if the dev cloud dies.
void removeIfAbandoned(const QString& path);

} // namespace CleanupWatcher

} // namespace devcloud
