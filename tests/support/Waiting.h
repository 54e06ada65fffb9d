// SPDX-License-Identifier: MIT
#pragma once

// Waiting on the event loop, bounded: for a condition, for a reply's
// finished(), for a configuration to load.

#include <Nubra/Manager.h>
#include <Nubra/Reply.h>

#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>

namespace VornTest {

// Runs the event loop until done() or timeoutMs, checking every tickMs;
// returns done(). Returns at once when done() already holds.
bool waitUntil(const std::function<bool()>& done, int timeoutMs = 10000, int tickMs = 5);

// Delivers what is already queued (queued signals, posted events, deferred
// deletions), `turns` times, without waiting for anything new: gives a
// signal that would come once too often its chance to show.
void deliverQueued(int turns = 1);

// Waits (at most timeoutMs) for the reply's finished() and returns its map
// (empty if it never came); the reply is released with deleteLater().
QVariantMap finishOf(Nubra::Reply* reply, int timeoutMs = 30000);

// Loads a configuration file into the manager; true when it was accepted.
bool loadConfig(Nubra::Manager& manager, const QString& path, int timeoutMs = 5000);

// A reply released with deleteLater() when the pointer goes.
struct ReplyDeleter {
    void operator()(Nubra::Reply* reply) const { reply->deleteLater(); }
};
using ReplyPtr = std::unique_ptr<Nubra::Reply, ReplyDeleter>;

} // namespace VornTest
