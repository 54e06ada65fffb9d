// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <curl/curl.h>

#include <unordered_map>
#include <unordered_set>
#include <vector>

class QSocketNotifier;

namespace Nubra {

class CurlTransfer;

// Drives one libcurl multi handle from the Qt event loop of its thread:
// curl tells us which sockets to watch (CURLMOPT_SOCKETFUNCTION) and when to
// wake it up (CURLMOPT_TIMERFUNCTION); socket notifiers and one timer feed
// curl_multi_socket_action(). No thread of our own. Connections stay in the
// multi handle's pool and are reused by later transfers to the same host.
class CurlMultiDriver : public QObject {
    Q_OBJECT
public:
    explicit CurlMultiDriver(QObject* parent = nullptr);
    ~CurlMultiDriver() override;

    bool add(CurlTransfer* transfer);
    void remove(CurlTransfer* transfer);

    // Easy handles are kept for reuse: a fresh one costs allocations and a
    // new receive buffer for every request. *standing is set when the
    // handle still carries the options every transfer sets the same way
    // (returned as plain, see below), so that they need not be set again.
    CURL* takeEasyHandle(bool* standing);
    // Keeps the handle for reuse (or cleans it up). A plain handle (an
    // in-memory GET or POST without extra options) is only cleared of
    // its per-request options; any other is reset completely.
    void returnEasyHandle(CURL* easy, bool plain);

private:
    struct SocketWatch {
        QSocketNotifier* read = nullptr;
        QSocketNotifier* write = nullptr;
        // A connection socket that curl opened and will close through our
        // callbacks, so we know when its number stops being valid.
        bool connection = false;
        // curl does not want it now: a kept-alive connection in the pool.
        bool idle = false;
    };

    static int socketCallback(CURL* easy, curl_socket_t socket, int what, void* driver, void* socketData);
    static int timerCallback(CURLM* multi, long timeoutMs, void* driver);
    static curl_socket_t openSocketCallback(void* driver, curlsocktype purpose, curl_sockaddr* address);
    static int closeSocketCallback(void* driver, curl_socket_t socket);
    void forgetSocket(curl_socket_t socket);
    void setConnectionCallbacks(CURL* easy);

    void watchSocket(curl_socket_t socket, int what);
    void unwatchSocket(curl_socket_t socket);
    void socketReady(curl_socket_t socket, int events);
    void timeoutReached();
    void scheduleTimeoutAction();
    void collectCompleted();

    CURLM* m_multi = nullptr;
    QTimer m_timer;
    std::unordered_map<curl_socket_t, SocketWatch> m_sockets;
    std::unordered_set<CurlTransfer*> m_active;
    struct IdleHandle {
        CURL* easy;
        bool standing;
    };
    std::vector<IdleHandle> m_idleHandles;
    bool m_collectQueued = false;
    bool m_timeoutActionQueued = false;
    bool m_adding = false;
    QElapsedTimer m_clock;
    qint64 m_timerDeadline = 0; // m_clock time the pending wake-up is due
};

} // namespace Nubra
