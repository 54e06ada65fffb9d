// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <functional>
#include <memory>

class QObject;
struct mosquitto;

namespace Nubra {

// One run of libmosquitto's connect for one handle on a short-lived thread of
// its own, so that the session's thread never waits for the network.
// mosquitto_connect resolves the host name (getaddrinfo) and waits for the
// TCP handshake, which against an address that never answers lasts minutes;
// libmosquitto 2.0 has no way to take a socket connected elsewhere, and its
// "async" connect still resolves names on the caller's thread. What follows
// the connect (the TLS handshake, CONNECT, CONNACK) runs on the session's
// event loop as before: the socket comes back non-blocking.
//
// The thread touches only the handle it was given; the handle goes back to
// the session through a queued call, or is destroyed (by whichever side sees
// the other done) when the session abandoned the attempt.
class MqttConnectAttempt {
public:
    // Runs on the receiver's thread: the handle (owned by the callee from
    // then on), mosquitto_connect's result and the errno it left.
    using Done = std::function<void(mosquitto* handle, int result, int savedErrno)>;

    // Takes ownership of `handle`. `done` runs on `receiver`'s thread unless
    // the attempt is abandoned first or the receiver is deleted (abandon in
    // its destructor).
    static std::shared_ptr<MqttConnectAttempt> start(mosquitto* handle, const QByteArray& host, int port,
                                                     int keepAliveSeconds, QObject* receiver, Done done);

    // The caller no longer wants the handle: `done` will not run and the
    // handle is destroyed as soon as the connect has returned.
    void abandon();

    struct State; // shared with the thread; defined in the source file

private:
    explicit MqttConnectAttempt(std::shared_ptr<State> state);
    std::shared_ptr<State> m_state;
};

} // namespace Nubra
