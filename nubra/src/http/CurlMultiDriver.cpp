// SPDX-License-Identifier: MIT
#include "http/CurlMultiDriver.h"

#include "http/CurlTransfer.h"

#include <QPointer>

#include <QSocketNotifier>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace Nubra {

namespace {
struct CurlGlobal {
    CurlGlobal() { curl_global_init(CURL_GLOBAL_DEFAULT); }
};
} // namespace

CurlMultiDriver::CurlMultiDriver(QObject* parent)
    : QObject(parent)
{
    static CurlGlobal global;
    m_multi = curl_multi_init();
    curl_multi_setopt(m_multi, CURLMOPT_SOCKETFUNCTION, &CurlMultiDriver::socketCallback);
    curl_multi_setopt(m_multi, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(m_multi, CURLMOPT_TIMERFUNCTION, &CurlMultiDriver::timerCallback);
    curl_multi_setopt(m_multi, CURLMOPT_TIMERDATA, this);
    curl_multi_setopt(m_multi, CURLMOPT_MAXCONNECTS, 16L);
    m_timer.setSingleShot(true);
    // curl asks for short wake-ups (often 0 or 1 ms); a coarse timer would
    // stretch them by up to 5%.
    m_timer.setTimerType(Qt::PreciseTimer);
    m_clock.start();
    connect(&m_timer, &QTimer::timeout, this, &CurlMultiDriver::timeoutReached);
}

CurlMultiDriver::~CurlMultiDriver()
{
    const auto active = m_active;
    for (CurlTransfer* transfer : active)
        remove(transfer);
    for (auto& entry : m_sockets) {
        delete entry.second.read;
        delete entry.second.write;
    }
    m_sockets.clear();
    for (CURL* idle : m_idleHandles)
        curl_easy_cleanup(idle);
    curl_multi_cleanup(m_multi);
}

CURL* CurlMultiDriver::takeEasyHandle()
{
    if (m_idleHandles.empty()) {
        CURL* easy = curl_easy_init();
        CurlTransfer::applyStandingOptions(easy, this);
        return easy;
    }
    CURL* easy = m_idleHandles.back();
    m_idleHandles.pop_back();
    return easy;
}

void CurlMultiDriver::returnEasyHandle(CURL* easy)
{
    constexpr size_t kMaxIdleHandles = 8;
    if (m_idleHandles.size() >= kMaxIdleHandles) {
        curl_easy_cleanup(easy);
        return;
    }
    // Nothing of the last request survives (body, method, headers, proxy,
    // CA file, limits, pointers to its transfer), and the standing options
    // are in force again before the handle can be taken.
    curl_easy_reset(easy);
    CurlTransfer::applyStandingOptions(easy, this);
    m_idleHandles.push_back(easy);
}

bool CurlMultiDriver::add(CurlTransfer* transfer)
{
    m_adding = true;
    const CURLMcode added = curl_multi_add_handle(m_multi, transfer->handle());
    m_adding = false;
    if (added != CURLM_OK)
        return false;
    m_active.insert(transfer);
    // Start at once rather than on the next loop turn: on a kept-alive
    // connection the request leaves before the caller has even connected
    // to its reply. Completions are still reported from the event loop
    // only, never from inside add() (that is, inside Manager::request()).
    int running = 0;
    curl_multi_socket_action(m_multi, CURL_SOCKET_TIMEOUT, 0, &running);
    if (size_t(running) < m_active.size() && !m_collectQueued) {
        m_collectQueued = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_collectQueued = false;
                collectCompleted();
            },
            Qt::QueuedConnection);
    }
    return true;
}

void CurlMultiDriver::remove(CurlTransfer* transfer)
{
    if (m_active.erase(transfer) == 0)
        return;
    curl_multi_remove_handle(m_multi, transfer->handle());
}

int CurlMultiDriver::socketCallback(CURL*, curl_socket_t socket, int what, void* driver, void*)
{
    auto* self = static_cast<CurlMultiDriver*>(driver);
    if (what == CURL_POLL_REMOVE)
        self->unwatchSocket(socket);
    else
        self->watchSocket(socket, what);
    return 0;
}

int CurlMultiDriver::timerCallback(CURLM*, long timeoutMs, void* driver)
{
    auto* self = static_cast<CurlMultiDriver*>(driver);
    // curl_multi_socket_action() must not be called from inside this
    // callback: "now" becomes a queued call on the next loop turn, a later
    // time a timer.
    //
    // Qt keeps its timers in one list sorted by deadline, and starting or
    // stopping one walks that list. An application under load may hold
    // thousands of timers there (one per pending call with a long
    // time-out, for instance). The timer is therefore started as rarely as
    // possible: never stopped (an early or needless wake-up only makes curl
    // ask for the remaining time again), not restarted while an earlier
    // wake-up is pending, and far deadlines are capped so that a pending
    // wake-up exists most of the time while transfers run.
    if (timeoutMs < 0)
        return 0;
    if (timeoutMs == 0) {
        self->scheduleTimeoutAction();
        return 0;
    }
    constexpr long kLongestWaitMs = 500;
    const long wait = std::min(timeoutMs, kLongestWaitMs);
    const qint64 deadline = self->m_clock.elapsed() + wait;
    if (self->m_timer.isActive() && self->m_timerDeadline <= deadline)
        return 0;
    self->m_timerDeadline = deadline;
    self->m_timer.start(int(wait));
    return 0;
}

void CurlMultiDriver::scheduleTimeoutAction()
{
    // Inside add() the socket action follows at once anyway.
    if (m_timeoutActionQueued || m_adding)
        return;
    m_timeoutActionQueued = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_timeoutActionQueued = false;
            timeoutReached();
        },
        Qt::QueuedConnection);
}

void CurlMultiDriver::watchSocket(curl_socket_t socket, int what)
{
    SocketWatch& watch = m_sockets[socket];
    watch.idle = false;
    const bool wantRead = what == CURL_POLL_IN || what == CURL_POLL_INOUT;
    const bool wantWrite = what == CURL_POLL_OUT || what == CURL_POLL_INOUT;

    if (wantRead && !watch.read) {
        watch.read = new QSocketNotifier(qintptr(socket), QSocketNotifier::Read, this);
        connect(watch.read, &QSocketNotifier::activated, this,
                [this, socket] { socketReady(socket, CURL_CSELECT_IN); });
    }
    if (watch.read)
        watch.read->setEnabled(wantRead);

    if (wantWrite && !watch.write) {
        watch.write = new QSocketNotifier(qintptr(socket), QSocketNotifier::Write, this);
        connect(watch.write, &QSocketNotifier::activated, this,
                [this, socket] { socketReady(socket, CURL_CSELECT_OUT); });
    }
    if (watch.write)
        watch.write->setEnabled(wantWrite);
}

void CurlMultiDriver::unwatchSocket(curl_socket_t socket)
{
    auto it = m_sockets.find(socket);
    if (it == m_sockets.end())
        return;
    SocketWatch& watch = it->second;
    // curl says this at the end of every transfer on a kept-alive
    // connection, and the next transfer wants the same socket again. The
    // notifiers are kept for the next watchSocket() of this socket number
    // (a notifier holds nothing but the number); this may run inside the
    // notifier's own activated() signal, so nothing is deleted here.
    if (watch.write)
        watch.write->setEnabled(false);
    // The read notifier of a connection socket even stays enabled: each
    // change of the event loop's poll set wakes the loop once more, two
    // extra wake-ups per request otherwise. Its closing reaches us through
    // closeSocketCallback(); if the idle connection becomes readable
    // (the server closed it), socketReady() switches the notifier off.
    if (watch.connection && watch.read) {
        watch.idle = true;
        return;
    }
    if (watch.read)
        watch.read->setEnabled(false);
}

curl_socket_t CurlMultiDriver::openSocketCallback(void* driver, curlsocktype, curl_sockaddr* address)
{
    const curl_socket_t socket = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (socket == CURL_SOCKET_BAD)
        return socket;
    auto* self = static_cast<CurlMultiDriver*>(driver);
    // A number reused from a socket that curl closed without telling us.
    self->forgetSocket(socket);
    self->m_sockets[socket].connection = true;
    return socket;
}

int CurlMultiDriver::closeSocketCallback(void* driver, curl_socket_t socket)
{
    static_cast<CurlMultiDriver*>(driver)->forgetSocket(socket);
    return ::close(socket);
}

void CurlMultiDriver::forgetSocket(curl_socket_t socket)
{
    auto it = m_sockets.find(socket);
    if (it == m_sockets.end())
        return;
    // May run inside the notifier's activated() signal (curl closes a
    // connection while handling its data): disable now, delete later.
    for (QSocketNotifier* notifier : {it->second.read, it->second.write}) {
        if (notifier) {
            notifier->setEnabled(false);
            notifier->deleteLater();
        }
    }
    m_sockets.erase(it);
}

void CurlMultiDriver::socketReady(curl_socket_t socket, int events)
{
    const auto it = m_sockets.find(socket);
    if (it != m_sockets.end() && it->second.idle) {
        // A pooled connection that no transfer uses became readable: the
        // server closed it (or spoke out of turn). curl finds that out when
        // it next checks the connection; stop watching until then.
        if (it->second.read)
            it->second.read->setEnabled(false);
        return;
    }
    int running = 0;
    curl_multi_socket_action(m_multi, socket, events, &running);
    collectCompleted();
}

void CurlMultiDriver::timeoutReached()
{
    int running = 0;
    curl_multi_socket_action(m_multi, CURL_SOCKET_TIMEOUT, 0, &running);
    collectCompleted();
}

void CurlMultiDriver::collectCompleted()
{
    // complete() runs the owners' code, which may delete this driver (with
    // its manager): stop reading messages then.
    const QPointer<CurlMultiDriver> self(this);
    int pending = 0;
    while (CURLMsg* message = curl_multi_info_read(m_multi, &pending)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        CURL* easy = message->easy_handle;
        const CURLcode result = message->data.result;
        CurlTransfer* transfer = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, reinterpret_cast<char**>(&transfer));
        if (!transfer || m_active.count(transfer) == 0)
            continue;
        remove(transfer);
        // The transfer's owner may delete it from here on.
        transfer->complete(result);
        if (!self)
            return;
    }
}

} // namespace Nubra
