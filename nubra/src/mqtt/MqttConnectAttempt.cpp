// SPDX-License-Identifier: MIT
#include "mqtt/MqttConnectAttempt.h"

#include <QObject>

#include <mosquitto.h>

#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>

namespace Nubra {

struct MqttConnectAttempt::State {
    std::mutex mutex;
    mosquitto* handle = nullptr;
    bool finished = false;  // the connect returned
    bool abandoned = false; // the session gave the handle up
    int result = MOSQ_ERR_UNKNOWN;
    int savedErrno = 0;
    // A handle nobody took (its queued delivery was dropped with the
    // receiver, or the process ended first) goes with the last reference.
    ~State()
    {
        if (handle)
            mosquitto_destroy(handle);
    }
};

MqttConnectAttempt::MqttConnectAttempt(std::shared_ptr<State> state)
    : m_state(std::move(state))
{
}

namespace {

// Called with the state's mutex held once the connect has returned: hands
// the handle back to the receiver, or frees it when nobody waits any more.
void deliver(const std::shared_ptr<MqttConnectAttempt::State>& state, QObject* receiver,
             const MqttConnectAttempt::Done& done)
{
    state->finished = true;
    if (state->abandoned) {
        mosquitto_destroy(state->handle);
        state->handle = nullptr;
        return;
    }
    // Posted while the receiver is alive: its destructor abandons the
    // attempt under the same lock, and deleting it drops the event.
    QMetaObject::invokeMethod(
        receiver,
        [state, done] {
            mosquitto* taken = nullptr;
            {
                std::lock_guard<std::mutex> lock(state->mutex);
                if (state->abandoned)
                    return;
                taken = state->handle;
                state->handle = nullptr;
            }
            done(taken, state->result, state->savedErrno);
        },
        Qt::QueuedConnection);
}

} // namespace

std::shared_ptr<MqttConnectAttempt> MqttConnectAttempt::start(mosquitto* handle, const QByteArray& host, int port,
                                                              int keepAliveSeconds, QObject* receiver, Done done)
{
    auto state = std::make_shared<State>();
    state->handle = handle;
    try {
        // Detached: a connect to an address that never answers may outlive
        // the session (and must not hold up the application's exit); the
        // shared state is all it leaves behind.
        std::thread([state, host, port, keepAliveSeconds, receiver, done] {
            const int result = mosquitto_connect(state->handle, host.constData(), port, keepAliveSeconds);
            const int savedErrno = errno;
            std::lock_guard<std::mutex> lock(state->mutex);
            state->result = result;
            state->savedErrno = savedErrno;
            deliver(state, receiver, done);
        }).detach();
    } catch (const std::system_error& error) {
        // No thread to be had: a failed attempt, reported on a later turn.
        std::lock_guard<std::mutex> lock(state->mutex);
        state->result = MOSQ_ERR_ERRNO;
        state->savedErrno = error.code().value();
        deliver(state, receiver, done);
    }
    return std::shared_ptr<MqttConnectAttempt>(new MqttConnectAttempt(state));
}

void MqttConnectAttempt::abandon()
{
    std::lock_guard<std::mutex> lock(m_state->mutex);
    if (m_state->abandoned)
        return;
    m_state->abandoned = true;
    // Returned already (its result possibly still queued): the handle is
    // ours to free. Otherwise the thread frees it when the connect returns.
    if (m_state->finished && m_state->handle) {
        mosquitto_destroy(m_state->handle);
        m_state->handle = nullptr;
    }
}

} // namespace Nubra
