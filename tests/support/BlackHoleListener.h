// SPDX-License-Identifier: MIT
#pragma once

// A TCP address on loopback that never completes a handshake: a listener
// with the smallest backlog, filled by connections of its own that nobody
// accepts. The kernel then drops every further SYN, so a client's connect
// waits for the system's SYN retries (minutes) instead of failing.

#include <QtGlobal>

#include <vector>

namespace VornTest {

class BlackHoleListener {
public:
    // On `port` of 127.0.0.1, or a free one (0).
    explicit BlackHoleListener(quint16 port = 0);
    ~BlackHoleListener();
    BlackHoleListener(const BlackHoleListener&) = delete;
    BlackHoleListener& operator=(const BlackHoleListener&) = delete;

    // True once a probe connect stayed unanswered: the backlog is full.
    bool isValid() const { return m_valid; }
    quint16 port() const { return m_port; }

private:
    int m_listener = -1;
    std::vector<int> m_fillers;
    quint16 m_port = 0;
    bool m_valid = false;
};

} // namespace VornTest
