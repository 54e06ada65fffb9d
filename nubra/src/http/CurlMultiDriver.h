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
    // new receive buffer for every request. A handle taken carries the
    // standing options (CurlTransfer::applyStandingOptions()) and nothing
    // else.
    CURL* takeEasyHandle();
    // Resets the handle to curl's defaults, applies the standing options
    // again and keeps it for reuse (or cleans it up when enough are kept).
    void returnEasyHandle(CURL* easy);
    // Handles kept for reuse.
    size_t idleHandleCount() const { return m_idleHandles.size(); }

private:
    // Sets the connection callbacks below among the standing options.
    friend class CurlTransfer;

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
    std::vector<CURL*> m_idleHandles;
    bool m_collectQueued = false;
    bool m_timeoutActionQueued = false;
    bool m_adding = false;
    QElapsedTimer m_clock;
    qint64 m_timerDeadline = 0; // m_clock time the pending wake-up is due
};

} // namespace Nubra
